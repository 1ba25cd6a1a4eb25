// The version of these headers, for the preprocessor; version() in util.h returns that of the
// loaded library. Libraries of one minor number are compatible: a program built with 0.6.x runs
// with every 0.6.y that offers what it uses.
#ifndef CORVANE_VERSION_H_
#define CORVANE_VERSION_H_

// In numbers and as text.
#define CORVANE_VERSION_MAJOR 0
#define CORVANE_VERSION_MINOR 6
#define CORVANE_VERSION_PATCH 6
#define CORVANE_VERSION_STRING "0.6.6.dev"

#endif  // CORVANE_VERSION_H_
