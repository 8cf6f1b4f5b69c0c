#include "ctl/Verbs.h"

int main(int argumentCount, char** arguments) {
    return kennly::RunKennlyctl(argumentCount, arguments, kennly::StandardOutput());
}
