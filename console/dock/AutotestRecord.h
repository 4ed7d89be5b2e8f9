#pragma once

#include <juce_core/juce_core.h>

/** The machine-readable account of one autotest run: who was tested, each
    step with its outcome, what was measured against which limits, what the
    technician answered, and the verdict. It is a side channel: nothing here
    prints to the console.

    The record is written once, at the end of the run, into the directory that
    AVRTEST_RECORD_DIR names, through a temporary file that is renamed into
    place, so a reader never sees half a record. */
class AutotestRecord
{
public:
    enum class Outcome
    {
        pass,
        fail,
        error,   // the dock operation could not be carried out
        skipped  // the run was stopped before the step's dock operations ran
    };

    static const char* outcomeName(Outcome outcome);

    /** `dockTag` names the dock type in file names ("usb3", "tbt-single"). */
    AutotestRecord(const juce::String& dockType, const juce::String& dockTag, int boardId,
                   const juce::String& firmwareVersion);

    void setDockSerial(const juce::String& serial) { dockSerial = serial; }

    /** Opens a step; `number` is the number printed in its heading, 0 for none. */
    void beginStep(const juce::String& name, int number = 0);
    /** A reading of the open step. Limits are void where the step has none. */
    void measure(const juce::String& name, const juce::var& value, const juce::String& unit,
                 const juce::var& lowerLimit = {}, const juce::var& upperLimit = {});
    /** A question put to the technician during the open step. */
    void question(const juce::String& text, const juce::String& answer, bool yes);
    /** Something about the open step that no reading shows. */
    void note(const juce::String& text);
    void endStep(Outcome outcome);

    /** Ends the run: "PASS", "FAIL", or "INCOMPLETE" when it was stopped. */
    void finish(bool passed, bool interrupted);

    juce::var toVar() const;
    /** "<dockTag>_<serial>_<start time>.json". */
    juce::String fileName() const;

    /** Writes the record into `directory` atomically; the file written. */
    juce::Result writeInto(const juce::File& directory, juce::File& written) const;

    /** The directory AVRTEST_RECORD_DIR names, or an empty File when unset. */
    static juce::File directoryFromEnvironment();

private:
    juce::DynamicObject::Ptr openStep();

    juce::String dockType, dockTag, firmwareVersion, dockSerial;
    int boardId;
    juce::Time startTime, endTime;
    juce::Array<juce::var> steps;
    juce::DynamicObject::Ptr current;
    juce::String result;
    bool interrupted = false;
};
