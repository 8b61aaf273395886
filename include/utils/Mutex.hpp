#pragma once

#include <mutex>

// Lock annotations for clang's thread-safety analysis
// (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html); empty elsewhere.
#if defined(__clang__)
#define ORU_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ORU_THREAD_ATTRIBUTE(x)
#endif
#define ORU_CAPABILITY(name) ORU_THREAD_ATTRIBUTE(capability(name))
#define ORU_SCOPED_CAPABILITY ORU_THREAD_ATTRIBUTE(scoped_lockable)
#define ORU_GUARDED_BY(mutex) ORU_THREAD_ATTRIBUTE(guarded_by(mutex))
#define ORU_REQUIRES(...) ORU_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ORU_ACQUIRE(...) ORU_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ORU_RELEASE(...) ORU_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ORU_TRY_ACQUIRE(...) ORU_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define ORU_EXCLUDES(...) ORU_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ORU_NO_THREAD_SAFETY_ANALYSIS ORU_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace oru {

/// A std::mutex that clang's thread-safety analysis understands. A std::condition_variable_any waits on it directly.
class ORU_CAPABILITY("mutex") Mutex {
public:
    void lock() ORU_ACQUIRE() { native.lock(); }
    void unlock() ORU_RELEASE() { native.unlock(); }
    [[nodiscard]] bool try_lock() ORU_TRY_ACQUIRE(true) { return native.try_lock(); }

private:
    std::mutex native;
};

/// Holds a Mutex for a scope.
class ORU_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) ORU_ACQUIRE(mutex) : held(mutex) { held.lock(); }
    /// Takes over a mutex that the caller has locked.
    MutexLock(Mutex& mutex, std::adopt_lock_t) ORU_REQUIRES(mutex) : held(mutex) {}
    ~MutexLock() ORU_RELEASE() { held.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& held;
};

}  // namespace oru
