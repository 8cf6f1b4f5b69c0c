#include "main/ProcessState.h"

namespace kennly {

bool foregroundMode = false;
bool childMode = false;
bool watcherMode = false;
bool createWatcher = false;
char configDir[PathRoom] = "";
char configFile[PathRoom] = "";
std::int32_t maxLoadErrors = 10;
bool firstLoad = true;
std::atomic<bool> closingDown{false};
std::atomic<bool> tidyingThreadPool{false};
pid_t childPid = -1;

}  // namespace kennly
