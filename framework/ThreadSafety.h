#pragma once

// What clang checks with -Wthread-safety (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html):
// which lock guards a member, and which lock is held when a function is called. Macros, because
// other compilers do not know the attributes. Here, because the library and what it runs on have
// locks of their own, and neither includes the other.
#ifdef __clang__
#define MIREL_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define MIREL_THREAD_SAFETY(attribute)
#endif
#define MIREL_GUARDED_BY(lock) MIREL_THREAD_SAFETY(guarded_by(lock))
#define MIREL_POINTEE_GUARDED_BY(lock) MIREL_THREAD_SAFETY(pt_guarded_by(lock))
#define MIREL_REQUIRES(lock) MIREL_THREAD_SAFETY(requires_capability(lock))
