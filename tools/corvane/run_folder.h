// A folder of one run: its agent.config, and what is shown when the program has ended.
#pragma once

#include <filesystem>

namespace corvane::tool {

class RunFolder {
public:
    // Also removes those that a killed tool has left. Throws Failure.
    RunFolder();
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;
    ~RunFolder();

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace corvane::tool
