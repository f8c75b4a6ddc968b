// Who guards what, in words that clang's thread-safety analysis checks. Other compilers see nothing.
#pragma once

#if defined(__clang__)
#define ZV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZV_THREAD_ANNOTATION(x)
#endif

/// A class whose objects are locks.
#define ZV_CAPABILITY(name) ZV_THREAD_ANNOTATION(capability(name))
/// A class whose objects hold a lock for their lifetime.
#define ZV_SCOPED_CAPABILITY ZV_THREAD_ANNOTATION(scoped_lockable)
/// Data that is touched under a lock only.
#define ZV_GUARDED_BY(lock) ZV_THREAD_ANNOTATION(guarded_by(lock))
/// A pointer whose pointee is touched under a lock only.
#define ZV_PT_GUARDED_BY(lock) ZV_THREAD_ANNOTATION(pt_guarded_by(lock))
/// The caller holds the lock.
#define ZV_REQUIRES(...) ZV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZV_REQUIRES_SHARED(...) ZV_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
/// The caller does not hold the lock.
#define ZV_EXCLUDES(...) ZV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZV_ACQUIRE(...) ZV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZV_ACQUIRE_SHARED(...) ZV_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define ZV_RELEASE(...) ZV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ZV_RELEASE_SHARED(...) ZV_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define ZV_TRY_ACQUIRE(...) ZV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ZV_TRY_ACQUIRE_SHARED(...) ZV_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
#define ZV_RETURN_CAPABILITY(lock) ZV_THREAD_ANNOTATION(lock_returned(lock))
/// What the analysis cannot follow. Each use stands in the list of docs/thread-safety.md, with its reason.
#define ZV_NO_THREAD_SAFETY_ANALYSIS ZV_THREAD_ANNOTATION(no_thread_safety_analysis)
