#include "main/Daemon.h"

int main(int argc, char* argv[]) {
    return kennly::RunDaemon(argc, argv);
}
