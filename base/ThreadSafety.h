#pragma once

// Annotations that say which lock guards what, for clang's thread-safety analysis (-Wthread-safety), which rejects an
// access without the lock. Empty for other compilers.

#if defined(__clang__)
#define X_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define X_THREAD_ATTRIBUTE(attribute)
#endif

/// A class that is a lock; `kind` appears in the compiler's messages.
#define X_CAPABILITY(kind) X_THREAD_ATTRIBUTE(capability(kind))
/// A class that holds a lock from its construction to its destruction.
#define X_SCOPED_CAPABILITY X_THREAD_ATTRIBUTE(scoped_lockable)
/// Data that is accessed only under the lock.
#define X_GUARDED_BY(lock) X_THREAD_ATTRIBUTE(guarded_by(lock))
/// A pointer to such data.
#define X_PT_GUARDED_BY(lock) X_THREAD_ATTRIBUTE(pt_guarded_by(lock))
/// A function that takes the lock; without an argument the object itself.
#define X_ACQUIRE(...) X_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
/// A function that releases the lock.
#define X_RELEASE(...) X_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
/// A function that holds the lock when it returns the first argument.
#define X_TRY_ACQUIRE(...) X_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
/// A function that is called under the lock.
#define X_REQUIRES(...) X_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
/// A function that takes the lock itself, so that its caller must not hold it.
#define X_EXCLUDES(...) X_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
/// A function that the analysis cannot follow; a comment at the function gives the reason.
#define X_NO_THREAD_SAFETY_ANALYSIS X_THREAD_ATTRIBUTE(no_thread_safety_analysis)
