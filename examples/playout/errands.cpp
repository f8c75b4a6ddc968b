#include "errands.h"

#include <utility>

using namespace Zv;

class Errands::Call final : public RCBase<LkCounter<long>>
{
public:
    Call(std::function<void()> call, RCShdPtr<PlayoutJob> const &job)
        : _call(std::move(call)), _job(job)
    {}

    void execute()
    {
        std::exception_ptr failure;
        try {
            _call();
        } catch (...) {
            failure = std::current_exception();
        }
        {
            LkGuard<LkLock const> const guard(_lock);
            _failure = failure;
            _hasReturned = true;
        }
        _job->wake();
    }
    bool hasReturned() const
    {
        LkGuard<LkLock const> const guard(_lock);
        return _hasReturned;
    }
    std::exception_ptr takeFailure()
    {
        LkGuard<LkLock const> const guard(_lock);
        return std::exchange(_failure, nullptr);
    }

private:
    std::function<void()> _call;
    RCShdPtr<PlayoutJob> _job;
    LkLock mutable _lock{"Errands"};
    bool _hasReturned ZV_GUARDED_BY(_lock) = false;
    std::exception_ptr _failure ZV_GUARDED_BY(_lock);
};

Errands::Errands(RCShdPtr<PlayoutJob> const &job) : _job(job) {}

Errands::~Errands() noexcept(false) = default;

void Errands::begin(std::function<void()> call)
{
    if (!_pool)
        _pool = std::make_unique<TaskPool>("errands", 1);
    auto const begun = makeShd<Call>(std::move(call), _job);
    _pool->add([begun] { begun->execute(); });
    _call = begun;
}

bool Errands::collect()
{
    if (!_call->hasReturned())
        return false;
    auto const failure = std::exchange(_call, nullptr)->takeFailure();
    if (failure)
        std::rethrow_exception(failure);
    return true;
}

void Errands::leaveBehind()
{
    _call = nullptr;
    static_cast<void>(_pool.release());
    _hasLeftBehind = true;
}
