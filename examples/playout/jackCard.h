// Sound through a server of JACK.
#pragma once

#ifdef ZVPLAYOUT_JACK

#include "soundCard.h"

#include <jack/jack.h>

/// Client of the JACK server, whose callback moves the samples.
///
/// **Throws** `PlayoutEx::Client` if no server answers.
class JackCard final : public SoundCard
{
public:
    explicit JackCard(Timeline const &timeline);
    JackCard(JackCard const &) = delete;
    JackCard &operator=(JackCard const &) = delete;
    ~JackCard() override;

    std::string getFailure() const override;
    char const *getName() override { return "JACK"; }
    void close() override;

protected:
    void performOpenOutput(int channels, int rate, std::string const &place) override;
    int performOpenInput(std::string const &place) override;
    int getPeriod() const override { return _period; }
    std::int64_t getOutputDelay() override;

private:
    struct Port
    {
        jack_port_t *port;
        float *buffer; // of the period that is being processed
    };
    using Ports = std::vector<Port>;

    /// The server's callback. It obeys the rules of real-time audio: no lock, no allocation, no
    /// system call.
    int process(jack_nframes_t count);
    /// Makes ports of this client. `flag` says whether they are inputs or outputs.
    Ports makePorts(std::size_t number, JackPortFlags flag);
    std::vector<std::string> listPorts(std::string const &place, JackPortFlags flag) const;
    void connect(Port const &own, std::string const &other);

    jack_client_t *_client = nullptr; // null when it is closed
    int _period = 0;
    // Only the server's callback uses these after their flag is set.
    Ports _outputs;
    Ports _inputs;

    // Shared with the callbacks.
    std::atomic<bool> _hasOutputs = false;
    std::atomic<bool> _hasInputs = false;
    std::atomic<bool> _isGone = false;
};

#endif
