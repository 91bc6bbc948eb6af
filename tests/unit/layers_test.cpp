// The layers: which folder may include which. What is wrong is told as it stands in the source.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace corvane {
namespace {

namespace fs = std::filesystem;

struct Layer {
    std::string folder;
    std::set<std::string> below; // what it may include beside itself
};

// Lowest first. A file belongs to the folder with the longest name of those that hold it.
const std::vector<Layer> kLayers = {
    {"clr", {}},
    {"il", {}},
    {"base", {"clr"}},
    {"selection", {"base", "clr", "il"}},
    {"sampling", {"base", "clr", "il"}},
    {"rewrite/body", {"base", "clr", "il"}},
    {"rewrite/references", {"base", "clr", "il", "selection"}},
    {"rewrite/shape", {"base", "clr", "il", "selection", "rewrite/references"}},
    {"rewrite/emit",
     {"base", "clr", "il", "selection", "rewrite/body", "rewrite/references", "rewrite/shape"}},
    {"rewrite",
     {"base", "clr", "il", "selection", "rewrite/body", "rewrite/emit", "rewrite/references",
      "rewrite/shape"}},
    {"profiler",
     {"base", "clr", "il", "rewrite", "rewrite/references", "rewrite/shape", "sampling",
      "selection"}},
    {"tools/corvane",
     {"base", "clr", "il", "profiler", "rewrite", "rewrite/body", "rewrite/emit",
      "rewrite/references", "rewrite/shape", "sampling", "selection"}},
};

// Empty for a file in none of them.
std::string layer_of(const std::string& path) {
    std::string found;
    for (const auto& [folder, below] : kLayers) {
        if (path.starts_with(folder + "/") && folder.size() > found.size()) {
            found = folder;
        }
    }
    return found;
}

// Each include that goes up or out, as "file: include".
std::vector<std::string> violations(const fs::path& root) {
    static const std::regex include(R"-(^\s*#\s*include\s*"([^"]+)")-");
    std::vector<std::string> found;
    for (const auto& [folder, below] : kLayers) {
        for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
            const std::string path = entry.path().lexically_relative(root).generic_string();
            if ((!path.ends_with(".h") && !path.ends_with(".cpp")) || layer_of(path) != folder) {
                continue;
            }
            std::ifstream file(entry.path());
            std::smatch match;
            for (std::string line; std::getline(file, line);) {
                if (!std::regex_search(line, match, include)) {
                    continue;
                }
                const std::string to = layer_of(match[1]);
                if (to != folder && !below.contains(to)) {
                    found.push_back(path + ": " + match[1].str());
                }
            }
        }
    }
    std::ranges::sort(found);
    return found;
}

// A tree with one header in each folder that includes those it may.
class PlantedTree : public ::testing::Test {
protected:
    PlantedTree() {
        for (const auto& [folder, below] : kLayers) {
            fs::create_directories(root_ / folder);
        }
        for (const auto& [folder, below] : kLayers) {
            for (const std::string& other : below) {
                plant(folder + "/house.h", other + "/house.h");
            }
        }
    }
    ~PlantedTree() override { fs::remove_all(root_); }

    void plant(const std::string& file, const std::string& include) {
        std::ofstream(root_ / file, std::ios::app) << "#include \"" << include << "\"\n";
    }

    const fs::path root_ =
        fs::temp_directory_path() / ("corvane layers " + std::to_string(std::random_device()()));
};

TEST(Layers, PointDown) {
    EXPECT_EQ(violations(CORVANE_SOURCES), std::vector<std::string>{});
}

TEST(Layers, StandAboveWhatTheyMayInclude) {
    std::set<std::string> lower;
    for (const auto& [folder, below] : kLayers) {
        EXPECT_TRUE(std::ranges::includes(lower, below)) << folder;
        lower.insert(folder);
    }
}

TEST_F(PlantedTree, IsRightAsItStands) {
    EXPECT_EQ(violations(root_), std::vector<std::string>{});
}

TEST_F(PlantedTree, ShowsEveryArrowThatPointsUpOrOut) {
    plant("base/log.cpp", "profiler/class_ids.h");
    plant("il/reader.h", "clr/com_ptr.h");
    plant("rewrite/emit/prologue.cpp", "rewrite/method_instrumenter.h");
    plant("sampling/snapshot.cpp", "selection/method_info.h");
    plant("selection/jit_flow.h", "rewrite/body/method_body.h");
    plant("profiler/registrar.cpp", "tests/support/log_lines.h");
    const std::vector<std::string> expected = {
        "base/log.cpp: profiler/class_ids.h",
        "il/reader.h: clr/com_ptr.h",
        "profiler/registrar.cpp: tests/support/log_lines.h",
        "rewrite/emit/prologue.cpp: rewrite/method_instrumenter.h",
        "sampling/snapshot.cpp: selection/method_info.h",
        "selection/jit_flow.h: rewrite/body/method_body.h",
    };
    EXPECT_EQ(violations(root_), expected);
}

} // namespace
} // namespace corvane
