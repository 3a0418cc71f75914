// Stands between the library and the mutexes. See lock_probe.h.
#include "lock_probe.h"

#include <algorithm>
#include <dlfcn.h>

namespace {

thread_local lock_probe::watch *watching = nullptr;

using mutex_call = int (*)(pthread_mutex_t *);

mutex_call next_of(const char *name) {
    return reinterpret_cast<mutex_call>(dlsym(RTLD_NEXT, name));
}

void call(const std::function<void()> &hook) {
    if (hook) {
        hook();
    }
}

} // namespace

namespace lock_probe {

void begin(watch *with) {
    watching = with;
}

} // namespace lock_probe

// What a hook does, and the probe's own work, is not watched.
extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    static const mutex_call real = next_of("pthread_mutex_lock");
    lock_probe::watch *with = watching;
    if (with == nullptr) {
        return real(mutex);
    }
    watching = nullptr;
    with->taken.push_back(mutex);
    call(with->before_lock);
    const int result = real(mutex);
    with->most_held = std::max(with->most_held, ++with->held);
    watching = with;
    return result;
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept {
    static const mutex_call real = next_of("pthread_mutex_unlock");
    lock_probe::watch *with = watching;
    if (with == nullptr) {
        return real(mutex);
    }
    watching = nullptr;
    call(with->before_unlock);
    --with->held;
    const int result = real(mutex);
    watching = with;
    return result;
}
