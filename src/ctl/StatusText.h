#pragma once

#include <string>

#include "ctl/Output.h"
#include "ctl/StatusView.h"

namespace kennly {

/// Writes everything, for people. One thread at a time for an output.
void WriteStatus(const StatusView& view, const Output& output);

/// When a process has last beaten: "0.4 s ago", or what keeps one from saying so.
/// Any thread may call it.
std::string BeatText(const HeartbeatFile& beat, const Output& output);

/// The exit status of a monitoring plugin: 0, 1 for warnings, 2 for what is critical; 3 when this
/// user cannot see what it takes to know: the processes, and of a tree that runs or should, its
/// heartbeats and its configuration. What is wrong for certain comes before what is unknown.
/// Any thread may call it.
int PluginStatus(const StatusView& view);

/// The one line of a monitoring plugin, without its end: the verdict, the worst problem, numbers.
/// Any thread may call it.
std::string PluginLine(const StatusView& view);

}  // namespace kennly
