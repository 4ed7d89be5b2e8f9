#pragma once

#include "console/dock/AutotestRecord.h"

#include <atomic>

/** The bookkeeping of one autotest: the overall result, the outcome of the
    step under way, the stop flag the steps consult, the technician's yes/no
    answers, and the record that is written when the run ends. */
class AutotestRun
{
public:
    using Outcome = AutotestRecord::Outcome;

    AutotestRun(AutotestRecord record, const std::atomic<unsigned char>& stopFlag);

    bool stopped() const { return stop.load() != 0; }
    bool passed() const { return overall; }

    /** Closes the step under way (if any) and opens the next. */
    void beginStep(const juce::String& name, int number = 0);
    /** The step's check did not hold; the run fails. */
    void fail();
    /** A dock operation could not be carried out. Unless `affectsResult` is
        false, the run fails. */
    void error(bool affectsResult = true);
    /** The step's dock operations were left out because the run was stopped. */
    void skip();
    /** Closes the step under way, or records it with `outcome` when given. */
    void endStep();
    void endStep(Outcome outcome);

    /** Prints the question, " [y/n] > ", and reads one word: yes when it
        starts with 1, Y or y. The exchange goes into the record. */
    bool ask(const juce::String& question);

    AutotestRecord& record() { return rec; }

    /** Ends the run and writes the record where AVRTEST_RECORD_DIR says. */
    void finish();

private:
    AutotestRecord rec;
    const std::atomic<unsigned char>& stop;
    bool overall = true;
    bool stepOpen = false;
    bool stepFailed = false, stepErrored = false, stepSkipped = false;
};
