// Client of the device manager: plays a show.
#pragma once

#include "display.h"
#include "errands.h"
#include "observers.h"
#include "options.h"
#include "partFile.h"
#include "report.h"
#include "stage.h"
#include "top.h"
#include "topReader.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Plays a show once and reports its progress and result. Only one thread may use it.
class Client
{
public:
    /// `options` and `show` must outlive the client. Throws `PlayoutEx`.
    Client(Options const &options, Show const &show, std::string const &output);
    Client(Client const &) = delete;
    Client &operator=(Client const &) = delete;

    /// Plays the show, closes everything, and writes the report if there is one. Returns true if
    /// the recording is complete, and false if a signal has stopped it. If something goes wrong,
    /// closes everything and throws the reason. A device that hangs is left behind. Then
    /// `PlayoutEx::NoAnswer` is thrown, unless a signal has stopped the recording.
    bool run();
    /// Returns whether threads were left behind that may use this object. If so, it must not be
    /// destroyed.
    bool hasLeftBehind() const { return _hasLeftBehind; }

private:
    bool playShow();
    void writeReport(std::string const &failure);
    Report makeReport(std::string const &failure) const;
    void addFacts(Report &report) const;
    void prepare();
    void perform(std::function<void()> call);
    void show();
    void setProperties();
    void observe();
    void play();
    bool mustEnd();
    bool endRecording();
    void watch();
    void watch(Zv::DevSeqDeviceStatus const &device, double moment);
    void endSequence();
    void stopAfterSignal();
    void noteQuestions();
    std::string getUnanswered(Zv::DevSeqDeviceStatus const &device) const;
    void awaitStates();
    bool settleErrand(double seconds);
    void close();
    void followStates();
    void followCues();
    bool haveAll(char const *state) const;
    void showProgress();
    void readProgress();
    void showReadProgress();
    void showTop(char const *phase, bool areOpen = true);
    void endTop();
    void showEnds();
    std::string describeEnd(Zv::DevSeqDeviceStatus const &device) const;
    void showReason(Zv::DevSeqDeviceStatus const &device);
    void showReason(Zv::DevMgrCloseReport::Device const &device);
    Zv::DevMgrCloseReport::Device const *findClosed(Zv::LiString const &name) const;
    void findCulprit();
    std::string describeOutput() const;
    std::string describeResult() const;
    void showResult();

    Options const &_options;
    Zv::RCShdPtr<PlayoutJob> _job;
    Display _display;
    Stage _stage;
    Errands _errands;
    std::string _source;              // its name
    std::vector<std::string> _faders; // the first one's peak is shown
    Zv::RCShdPtr<PropertyObserver> _observer;
    Zv::RCShdPtr<StateObserver> _stateObserver;

    std::map<std::string, std::string> _states; // by device
    double _startedAt = 0;                      // moments of the monotonic clock
    double _recordingEndedAt = 0; // by a signal, for a device that then ends by itself
    double _stoppedAt = 0;
    double _finishedAt = 0; // when the last states were known
    double _shownAt = 0;
    double _watchedAt = 0;
    // Property values that an errand has read.
    struct Reading
    {
        double position = 0;
        double place = 0;
        double peak = -1;
    };
    Reading _reading; // written by the errand while it runs
    double _position = 0;
    double _peak = -1;
    double _share = -1; // of the length

    std::unique_ptr<Top> _top; // null if the live table is not shown or has ended
    TopReader _topReader;
    double _topShownAt = 0;

    // By device: the call or step that it has not answered for long.
    std::map<std::string, std::string> _questions;
    std::string _failure;     // of a device; empty while there is none
    bool _isNoAnswer = false; // the failure is that a device hangs
    Zv::DevSeqStatus _status; // at the end of the sequence
    Zv::DevMgrCloseReport _closed;
    bool _isComplete = false;
    bool _hasLeftBehind = false;

    std::unique_ptr<PartFile> _reportFile; // null if there is no report
    std::vector<ThreadLevel> _threads;     // when all devices were locked
};
