/**
 * @file
 * Pthread mutexes with Clang's lock analysis: what is marked VX_TSA(guarded_by(m)) cannot be touched without
 * m.
 */
#ifndef VX_LOCK_H
#define VX_LOCK_H

#include <pthread.h>

#ifdef __clang__
#define VX_TSA(x) __attribute__((x))
#else
#define VX_TSA(x)
#endif

/** A mutex of the library's own. */
struct VX_TSA(capability("mutex")) vx_mutex {
    pthread_mutex_t handle;
};

/** Names a pthread mutex that must stay one, because it is exported, for the analysis. Owns nothing. */
struct VX_TSA(capability("mutex")) mutex_ref {
    pthread_mutex_t &handle;
};

/** Holds a mutex for the length of a scope. */
template <class Mutex>
class VX_TSA(scoped_lockable) mutex_guard {
public:
    explicit mutex_guard(Mutex &mutex) VX_TSA(acquire_capability(mutex)) : handle_(mutex.handle) {
        (void)pthread_mutex_lock(&handle_); // fails only for a mutex that is not one
    }
    ~mutex_guard() VX_TSA(release_capability()) { (void)pthread_mutex_unlock(&handle_); }
    mutex_guard(const mutex_guard &) = delete;
    mutex_guard &operator=(const mutex_guard &) = delete;

private:
    pthread_mutex_t &handle_;
};

#endif
