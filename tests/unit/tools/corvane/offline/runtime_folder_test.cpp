#include "tools/corvane/offline/runtime_folder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

TEST(RuntimeVersion, IsThreeNumbers) {
    EXPECT_EQ(parse_version(L"10.0.12"), (RuntimeVersion{{10, 0, 12}, true}));
    EXPECT_EQ(parse_version(L"11.0.0-preview.1"), (RuntimeVersion{{11, 0, 0}, false}));
    for (const wchar_t* const text :
         {L"", L"10", L"10.0", L"10.0.1.2", L"a.b.c", L"10.0.1x", L"99999999999.0.0", L"-1.0.0"}) {
        EXPECT_EQ(parse_version(text), std::nullopt) << text;
    }
}

TEST(RuntimeVersion, OfTheMajorVersionOrElseTheNewest) {
    const std::vector<std::wstring> names = {L"9.0.19",  L"10.0.2",      L"backup",
                                             L"10.0.12", L"11.0.0-rc.1", L"8.0.30"};
    EXPECT_EQ(best_version(names, 8), 5U);
    EXPECT_EQ(best_version(names, 10), 3U);
    EXPECT_EQ(best_version(names, 7), 4U);
    EXPECT_EQ(best_version(names, std::nullopt), 4U);
    EXPECT_EQ(best_version({L"11.0.0-rc.1", L"11.0.0"}, 11), 1U);
    EXPECT_EQ(best_version({L"backup"}, 11), std::nullopt);
}

class InstalledRuntimes : public ::testing::Test {
protected:
    InstalledRuntimes() {
        for (const char* const version : {"8.0.1", "9.0.2"}) {
            make_file(installation_ / "shared/Microsoft.NETCore.App" / version / "coreclr.dll");
            make_file(installation_ / "shared/Microsoft.AspNetCore.App" / version / "Web.dll");
        }
        fs::create_directories(installation_ / "shared/Microsoft.NETCore.App/10.0.0"); // empty
        make_file(assembly_);
    }
    ~InstalledRuntimes() override { fs::remove_all(folder_); }

    static void make_file(const fs::path& file, const std::string& text = "") {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }
    void ask_for(const std::string& version) const {
        make_file(
            folder_ / "program/Shop.runtimeconfig.json",
            R"({"runtimeOptions": {"framework": {"name": "Microsoft.NETCore.App", "version": ")" +
                version + R"("}}})");
    }
    std::string found(const std::optional<fs::path>& asked) const {
        const auto folder = find_runtime(assembly_, asked);
        return folder ? folder->lexically_relative(folder_).generic_string() : "none";
    }

    // The tests of another build may run meanwhile.
    const fs::path folder_ =
        fs::temp_directory_path() / ("corvane runtimes " + std::to_string(std::random_device()()));
    const fs::path installation_ = folder_ / "dotnet";
    const fs::path assembly_ = folder_ / "program" / "Shop.dll";
};

TEST_F(InstalledRuntimes, AreFoundByTheFolderThatIsAskedFor) {
    EXPECT_EQ(found(installation_), "dotnet/shared/Microsoft.NETCore.App/9.0.2");
    EXPECT_EQ(found(installation_ / "shared/Microsoft.NETCore.App/8.0.1"),
              "dotnet/shared/Microsoft.NETCore.App/8.0.1");
    EXPECT_EQ(found(folder_ / "program"), "none");
    EXPECT_EQ(found(folder_ / "nowhere"), "none");
}

TEST_F(InstalledRuntimes, AreOfTheVersionThatTheProgramAsksFor) {
    ask_for("8.0.0");
    EXPECT_EQ(found(installation_), "dotnet/shared/Microsoft.NETCore.App/8.0.1");
    ask_for("7.0.0");
    EXPECT_EQ(found(installation_), "dotnet/shared/Microsoft.NETCore.App/9.0.2");
    make_file(
        folder_ / "program/Shop.runtimeconfig.json",
        R"({"runtimeOptions": {"framework": {"version": "8.0.0", "name": "Microsoft.NETCore.App"}}})");
    EXPECT_EQ(found(installation_), "dotnet/shared/Microsoft.NETCore.App/8.0.1");
}

TEST_F(InstalledRuntimes, BesideTheProgramAreTakenOnlyIfAskedFor) {
    make_file(folder_ / "program/coreclr.dll");
    EXPECT_NE(found(std::nullopt), "program");
    EXPECT_EQ(found(folder_ / "program"), "program");
    EXPECT_EQ(framework_folders(folder_ / "program"), std::vector<fs::path>{folder_ / "program"});
}

TEST_F(InstalledRuntimes, HaveTheFrameworksOfTheirVersion) {
    const auto folders = framework_folders(installation_ / "shared/Microsoft.NETCore.App/9.0.2");
    ASSERT_EQ(folders.size(), 2U);
    EXPECT_EQ(folders[1].lexically_relative(folder_).generic_string(),
              "dotnet/shared/Microsoft.AspNetCore.App/9.0.2");
}

} // namespace
} // namespace corvane::tool
