// What users of the library need to know about its symbols.
#ifndef CORVANE_EXPORT_H_
#define CORVANE_EXPORT_H_

// CORVANE_EXPORT marks what libCorvaneCommon.so exports; every other symbol of the library is
// hidden. CORVANE_INLINE marks a function whose body is in a public header: every program or
// library that uses it gets a copy of its own, which it neither exports nor shares with others.
#if defined(__GNUC__) || defined(__clang__)
// Exported.
#define CORVANE_EXPORT __attribute__((visibility("default")))
// Defined in a public header.
#define CORVANE_INLINE __attribute__((visibility("hidden"))) inline
#else
#define CORVANE_EXPORT
#define CORVANE_INLINE inline
#endif

#endif  // CORVANE_EXPORT_H_
