// CORVANE_EXPORT marks what libCorvaneCommon.so offers; every other symbol of the library is
// hidden.
#ifndef CORVANE_EXPORT_H_
#define CORVANE_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define CORVANE_EXPORT __attribute__((visibility("default")))
#else
#define CORVANE_EXPORT
#endif

#endif  // CORVANE_EXPORT_H_
