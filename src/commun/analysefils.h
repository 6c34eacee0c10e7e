#ifndef ANALYSEFILS_H
#define ANALYSEFILS_H

// The thread sanitizer sees pthread calls but not Qt's own futex-based
// waiting, so a QThread::wait() is a join it cannot see. A thread calls
// finFil() as its last word and the joiner calls apresJoin() once wait()
// has returned: the sanitizer then knows what the join guarantees. Without
// the sanitizer both are empty.
#if defined(__SANITIZE_THREAD__)
#define ANALYSEFILS_ACTIVE 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ANALYSEFILS_ACTIVE 1
#endif
#endif

#ifdef ANALYSEFILS_ACTIVE
extern "C" void __tsan_acquire(void *adresse);
extern "C" void __tsan_release(void *adresse);
#endif

namespace AnalyseFils {

inline void finFil([[maybe_unused]] void *jeton)
{
#ifdef ANALYSEFILS_ACTIVE
    __tsan_release(jeton);
#endif
}

inline void apresJoin([[maybe_unused]] void *jeton)
{
#ifdef ANALYSEFILS_ACTIVE
    __tsan_acquire(jeton);
#endif
}

} // namespace AnalyseFils

#endif // ANALYSEFILS_H
