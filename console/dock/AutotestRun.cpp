#include "console/dock/AutotestRun.h"

#include "console/ConsoleInput.h"

#include <cstdio>

AutotestRun::AutotestRun(AutotestRecord record, const std::atomic<unsigned char>& stopFlag)
    : rec(std::move(record)), stop(stopFlag)
{
}

void AutotestRun::beginStep(const juce::String& name, int number)
{
    endStep();
    rec.beginStep(name, number);
    stepOpen = true;
    stepFailed = stepErrored = stepSkipped = false;
}

void AutotestRun::fail()
{
    stepFailed = true;
    overall = false;
}

void AutotestRun::error(bool affectsResult)
{
    stepErrored = true;
    if (affectsResult)
        overall = false;
}

void AutotestRun::skip()
{
    stepSkipped = true;
}

void AutotestRun::endStep()
{
    if (!stepOpen)
        return;
    // An answer of no still fails a step whose operations were skipped.
    endStep(stepErrored ? Outcome::error : stepFailed ? Outcome::fail : stepSkipped ? Outcome::skipped : Outcome::pass);
}

void AutotestRun::endStep(Outcome outcome)
{
    if (!stepOpen)
        return;
    rec.endStep(outcome);
    stepOpen = false;
}

bool AutotestRun::ask(const juce::String& question)
{
    printf("%s [y/n] > ", question.toRawUTF8());
    // One word, as scanf("%s") takes it: blank lines are passed over.
    std::string line, word;
    while (word.empty() && ConsoleInput::readLine(line))
    {
        const auto start = line.find_first_not_of(" \t");
        if (start != std::string::npos)
            word = line.substr(start, line.find_first_of(" \t", start) - start);
    }
    const bool yes = !word.empty() && (word[0] == '1' || word[0] == 'Y' || word[0] == 'y');
    rec.question(question, word, yes);
    return yes;
}

void AutotestRun::finish()
{
    endStep();
    rec.finish(overall, stopped());
    const auto dir = AutotestRecord::directoryFromEnvironment();
    if (dir == juce::File())
        return;
    juce::File written;
    const auto status = rec.writeInto(dir, written);
    if (status.failed())
        juce::Logger::writeToLog("avrtest: autotest record not written: " + status.getErrorMessage());
    else
        juce::Logger::writeToLog("avrtest: autotest record written to " + written.getFullPathName());
}
