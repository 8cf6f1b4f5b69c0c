#include <unistd.h>

// To be loaded before the C library into a program that is built with the thread sanitizer. That
// one makes room for the signals of a thread when it pauses for the first time, and a signal that
// comes just then is lost to it. With this, the first pause comes before main.

namespace {

const int paused = usleep(1);

}  // namespace
