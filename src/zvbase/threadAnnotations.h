// Annotations for clang's thread-safety analysis. Other compilers ignore them (extenders).
#pragma once

#if defined(__clang__)
#define ZV_THREAD_ANNOTATION(x) __attribute__((x))
#else
/// Attaches an attribute of clang. Does nothing for other compilers.
#define ZV_THREAD_ANNOTATION(x)
#endif

/// Marks a class whose objects are locks.
#define ZV_CAPABILITY(name) ZV_THREAD_ANNOTATION(capability(name))
/// Marks a class whose objects hold a lock during their lifetime.
#define ZV_SCOPED_CAPABILITY ZV_THREAD_ANNOTATION(scoped_lockable)
/// Marks data that must be accessed only under a lock.
#define ZV_GUARDED_BY(lock) ZV_THREAD_ANNOTATION(guarded_by(lock))
/// Marks a pointer whose target must be accessed only under a lock.
#define ZV_PT_GUARDED_BY(lock) ZV_THREAD_ANNOTATION(pt_guarded_by(lock))
/// The caller must hold the lock.
#define ZV_REQUIRES(...) ZV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// The caller must hold the lock for reading at least.
#define ZV_REQUIRES_SHARED(...) ZV_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
/// The caller must not hold the lock.
#define ZV_EXCLUDES(...) ZV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// The function takes the lock.
#define ZV_ACQUIRE(...) ZV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// The function takes the lock for reading.
#define ZV_ACQUIRE_SHARED(...) ZV_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
/// The function releases the lock.
#define ZV_RELEASE(...) ZV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// The function releases the lock, which the caller holds for reading.
#define ZV_RELEASE_SHARED(...) ZV_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
/// The function takes the lock if it returns the given value.
#define ZV_TRY_ACQUIRE(...) ZV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
/// The function takes the lock for reading if it returns the given value.
#define ZV_TRY_ACQUIRE_SHARED(...) ZV_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
/// The function returns a reference to the lock.
#define ZV_RETURN_CAPABILITY(lock) ZV_THREAD_ANNOTATION(lock_returned(lock))
/// Exempts a function that the analysis cannot follow. docs/thread-safety.md lists each use and its
/// reason.
#define ZV_NO_THREAD_SAFETY_ANALYSIS ZV_THREAD_ANNOTATION(no_thread_safety_analysis)
