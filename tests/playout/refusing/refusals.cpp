// Refuses system calls, in a build of the playout for the tests.
//
// If ZV_REFUSE is "CALL K", the K-th call of that name fails. If it is "CALL K on", the K-th call
// and all later ones fail. Each refusal adds a byte to the file that ZV_REFUSALS names.
//
// A device of ALSA that refuses "writei" or "readi" has run out of samples or of room. One that
// refuses "writei-gone" or "readi-gone" was unplugged.

#include <alsa/asoundlib.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

std::atomic<int> nbThreads = 0;
std::atomic<int> nbSyncs = 0;
std::atomic<int> nbMoves = 0; // of samples of ALSA
std::atomic<int> nbMovesToGone = 0;

bool isRefused(char const *call, std::atomic<int> &count)
{
    char refused[32] = "";
    char more[8] = "";
    int turn = 0;
    char const * const value = std::getenv("ZV_REFUSE");
    int const thisTurn = ++count;
    if (!value || std::sscanf(value, "%31s %d %7s", refused, &turn, more) < 2 ||
        std::strcmp(refused, call) != 0)
        return false;
    if (std::strcmp(more, "on") == 0 ? thisTurn < turn : thisTurn != turn)
        return false;
    int const file = ::open(std::getenv("ZV_REFUSALS"), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (file < 0 || ::write(file, "1", 1) != 1)
        std::abort();
    ::close(file);
    return true;
}

/// Returns the error with which a device of ALSA refuses to move samples, or 0.
int getRefusal(char const *call, char const *callIfGone)
{
    return isRefused(call, nbMoves) ? -EPIPE : isRefused(callIfGone, nbMovesToGone) ? -ENODEV : 0;
}

} // namespace

extern "C" {

int __real_pthread_create(pthread_t *thread, pthread_attr_t const *attributes,
                          void *(*body)(void *), void *argument);
int __real_fsync(int descriptor);
snd_pcm_sframes_t __real_snd_pcm_writei(snd_pcm_t *pcm, void const *samples,
                                        snd_pcm_uframes_t frames);
snd_pcm_sframes_t __real_snd_pcm_readi(snd_pcm_t *pcm, void *samples, snd_pcm_uframes_t frames);

int __wrap_pthread_create(pthread_t *thread, pthread_attr_t const *attributes,
                          void *(*body)(void *), void *argument)
{
    if (isRefused("pthread_create", nbThreads))
        return EAGAIN;
    return __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_fsync(int descriptor)
{
    if (isRefused("fsync", nbSyncs)) {
        errno = EIO;
        return -1;
    }
    return __real_fsync(descriptor);
}

snd_pcm_sframes_t __wrap_snd_pcm_writei(snd_pcm_t *pcm, void const *samples,
                                        snd_pcm_uframes_t frames)
{
    int const refusal = getRefusal("writei", "writei-gone");
    return refusal ? refusal : __real_snd_pcm_writei(pcm, samples, frames);
}

snd_pcm_sframes_t __wrap_snd_pcm_readi(snd_pcm_t *pcm, void *samples, snd_pcm_uframes_t frames)
{
    int const refusal = getRefusal("readi", "readi-gone");
    return refusal ? refusal : __real_snd_pcm_readi(pcm, samples, frames);
}
}
