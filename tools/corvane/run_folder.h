// A folder of one run: its agent.config, and what is shown when the program has ended.
#pragma once

#include "base/owned_handle.h"

#include <filesystem>

namespace corvane::tool {

class RunFolder {
public:
    // Also removes those that a killed tool has left, and that no program uses any more. A program
    // that may outlive this process inherits a handle of the folder, by which it is seen to use it.
    // Throws Failure.
    explicit RunFolder(bool may_be_left);
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;
    ~RunFolder();

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    OwnedHandle inherited_;
};

} // namespace corvane::tool
