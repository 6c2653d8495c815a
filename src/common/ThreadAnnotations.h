#pragma once

// Names for clang's -Wthread-safety analysis; empty for other compilers.
#if defined(__clang__)
#define VEX_ANNOTATE(x) __attribute__((x))
#else
#define VEX_ANNOTATE(x)
#endif

#define CAPABILITY(x) VEX_ANNOTATE(capability(x))
#define SCOPED_CAPABILITY VEX_ANNOTATE(scoped_lockable)
#define GUARDED_BY(x) VEX_ANNOTATE(guarded_by(x))
#define REQUIRES(...) VEX_ANNOTATE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) VEX_ANNOTATE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VEX_ANNOTATE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) VEX_ANNOTATE(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) VEX_ANNOTATE(locks_excluded(__VA_ARGS__))
#define RETURN_CAPABILITY(x) VEX_ANNOTATE(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS VEX_ANNOTATE(no_thread_safety_analysis)
