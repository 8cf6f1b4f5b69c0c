#pragma once

#include <string>
#include <vector>

#include "lint/ConfigText.h"
#include "lint/Finding.h"

namespace kennly {

/// The elements of a job that the daemon would run.
struct SelectedJob {
    std::string name;
    const TiXmlElement* job = nullptr;
    const TiXmlElement* check = nullptr;
    const TiXmlElement* remedy = nullptr;
};

/// Goes through the jobs in `text` as the daemon's loader does and returns those that it keeps, in
/// its order.
///
/// Adds to `findings` one error for each error that the loader logs, in the same order, each
/// beginning with the text of the log; and what the loader's choice between elements is worth
/// knowing for. One thread at a time; the elements belong to `text`.
std::vector<SelectedJob> SelectJobs(const ConfigText& text, Findings& findings);

}  // namespace kennly
