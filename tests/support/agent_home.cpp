#include "tests/support/agent_home.h"

#include "profiler/agent_config.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <boost/filesystem/fstream.hpp>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace corvane::testing {
namespace {

namespace fs = boost::filesystem; // narrow names are in the code page, as the variable is

std::string own_folder() {
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string stem = std::string("corvane ") + test->test_suite_name() + "." + test->name();
    std::ranges::replace(stem, '/', ' '); // which stands in the names of a test with parameters
    for (int number = 0;; ++number) {
        const fs::path folder = fs::temp_directory_path() / (stem + ' ' + std::to_string(number));
        if (fs::create_directory(folder)) {
            return folder.string();
        }
    }
}

std::string make_folder(const std::string& parent, const std::string& name) {
    const fs::path folder = fs::path(parent) / name;
    fs::create_directory(folder);
    return folder.string();
}

} // namespace

void set_variable(const char* name, const std::optional<std::string>& value) {
#ifdef _WIN32
    _putenv_s(name, value ? value->c_str() : "");
#else
    if (value) {
        setenv(name, value->c_str(), 1);
    } else {
        unsetenv(name);
    }
#endif
}

std::optional<std::string> get_variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

ScopedVariable::ScopedVariable(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)), before_(get_variable(name_.c_str())) {
    set_variable(name_.c_str(), value);
}

ScopedVariable::~ScopedVariable() {
    set_variable(name_.c_str(), before_);
}

AgentHome::AgentHome(const std::string& agent_config, const std::string& name,
                     const std::string& separator)
    : parent_(own_folder()),
      folder_(make_folder(parent_, name)),
      variable_(kHomeVariable, folder_ + separator) {
    fs::ofstream file(fs::path(folder_) / "agent.config", std::ios::binary);
    file << agent_config;
    if (!file.flush()) {
        throw std::runtime_error("cannot write agent.config in " + folder_);
    }
}

AgentHome::AgentHome(NoFolder, const std::optional<std::string>& variable)
    : folder_(variable.value_or("")), variable_(kHomeVariable, variable) {}

AgentHome::~AgentHome() {
    boost::system::error_code ignored;
    if (!parent_.empty()) {
        fs::remove_all(parent_, ignored);
    }
}

void AgentHome::remove_config() const {
    fs::remove(fs::path(folder_) / "agent.config");
}

} // namespace corvane::testing
