// Looks at CorvaneProfiler.dll as a file: what it exports, what it needs, what it says of itself.
#include "base/own_module.h"
#include "clr/com_ptr.h"
#include "profiler/class_ids.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <winver.h>

#include <array>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace corvane {
namespace {

std::wstring built_path(const char* name) {
    return (std::filesystem::path(own_module_path()).parent_path() / name).wstring();
}

std::wstring library_path() {
    return built_path("CorvaneProfiler.dll");
}

// The file's image as its headers describe it; addresses are relative to the image.
class ImageFile {
public:
    explicit ImageFile(const std::wstring& path) {
        std::ifstream stream(std::filesystem::path(path), std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }

    const IMAGE_NT_HEADERS64& headers() const {
        return at_offset<IMAGE_NT_HEADERS64>(
            static_cast<std::size_t>(at_offset<IMAGE_DOS_HEADER>(0).e_lfanew));
    }

    template <class T>
    const T& at(DWORD address) const {
        return at_offset<T>(offset_of(address));
    }

    const IMAGE_DATA_DIRECTORY& directory(int index) const {
        return headers().OptionalHeader.DataDirectory[index];
    }

private:
    template <class T>
    const T& at_offset(std::size_t offset) const {
        if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T)) {
            throw std::out_of_range("the image file is too short");
        }
        return *reinterpret_cast<const T*>(bytes_.data() + offset);
    }

    std::size_t offset_of(DWORD address) const {
        const auto* const sections = IMAGE_FIRST_SECTION(&headers());
        for (int i = 0; i < headers().FileHeader.NumberOfSections; ++i) {
            const IMAGE_SECTION_HEADER& section = sections[i];
            if (address >= section.VirtualAddress &&
                address - section.VirtualAddress < section.SizeOfRawData) {
                return section.PointerToRawData + (address - section.VirtualAddress);
            }
        }
        throw std::out_of_range("no section holds the address");
    }

    std::vector<char> bytes_;
};

TEST(Library, IsFor64Bit) {
    const ImageFile image(library_path());
    EXPECT_EQ(image.headers().Signature, static_cast<DWORD>(IMAGE_NT_SIGNATURE));
    EXPECT_EQ(image.headers().FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
    EXPECT_NE(image.headers().FileHeader.Characteristics & IMAGE_FILE_DLL, 0);
}

TEST(Library, ExportsExactlyItsEntryPoints) {
    const ImageFile image(library_path());
    const auto& exports = image.at<IMAGE_EXPORT_DIRECTORY>(
        image.directory(IMAGE_DIRECTORY_ENTRY_EXPORT).VirtualAddress);
    std::set<std::string> names;
    for (DWORD i = 0; i < exports.NumberOfNames; ++i) {
        names.insert(&image.at<char>(image.at<DWORD>(exports.AddressOfNames + 4 * i)));
    }
    EXPECT_EQ(names,
              (std::set<std::string>{"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer",
                                     "DllUnregisterServer", "GetFunctionNames",
                                     "GetInstrumentationOutcome", "TakeSnapshot"}));
    EXPECT_EQ(exports.NumberOfFunctions, exports.NumberOfNames); // none by ordinal alone
}

std::set<std::string> libraries_of(const ImageFile& image) {
    std::set<std::string> libraries;
    for (DWORD address = image.directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress;;
         address += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
        const auto& import = image.at<IMAGE_IMPORT_DESCRIPTOR>(address);
        if (import.Name == 0) {
            break;
        }
        std::string name = &image.at<char>(import.Name);
        for (char& c : name) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        libraries.insert(name);
    }
    return libraries;
}

// The tool as well.
TEST(Library, NeedsNothingButTheSystem) {
    EXPECT_EQ(libraries_of(ImageFile(library_path())),
              (std::set<std::string>{"advapi32.dll", "bcrypt.dll", "kernel32.dll", "msvcrt.dll",
                                     "ole32.dll", "oleaut32.dll", "shell32.dll"}));
    EXPECT_EQ(libraries_of(ImageFile(built_path("corvane.exe"))),
              (std::set<std::string>{"advapi32.dll", "bcrypt.dll", "kernel32.dll", "msvcrt.dll",
                                     "shell32.dll", "version.dll"}));
}

// It may stand anywhere in the whole of the address space, and its data cannot be run.
TEST(Library, IsHardenedAsTheSystemAllows) {
    const WORD flags = ImageFile(library_path()).headers().OptionalHeader.DllCharacteristics;
    EXPECT_NE(flags & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE, 0);
    EXPECT_NE(flags & IMAGE_DLLCHARACTERISTICS_NX_COMPAT, 0);
    EXPECT_NE(flags & IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA, 0);
}

// One number, in one file, says the version of all that is shipped.
TEST(Library, HasTheVersionOfAllThatIsShipped) {
    std::string version;
    std::getline(std::ifstream(CORVANE_SOURCES "/version.txt"), version);
    EXPECT_EQ(version, CORVANE_VERSION);
    const std::filesystem::path folder = std::filesystem::path(library_path()).parent_path();
    for (const wchar_t* const name :
         {L"CorvaneProfiler.dll", L"corvane.exe", L"managed\\kite\\kite.managed.dll",
          L"managed\\kite_framework\\kite.managed.dll"}) {
        const std::wstring path = (folder / name).wstring();
        std::vector<BYTE> data(GetFileVersionInfoSizeW(path.c_str(), nullptr));
        ASSERT_FALSE(data.empty()) << folder / name;
        ASSERT_TRUE(
            GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(data.size()), data.data()));
        VS_FIXEDFILEINFO* info = nullptr;
        WORD* language = nullptr; // and its code page
        UINT length = 0;
        ASSERT_TRUE(VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&info), &length));
        ASSERT_TRUE(VerQueryValueW(data.data(), L"\\VarFileInfo\\Translation",
                                   reinterpret_cast<void**>(&language), &length));
        const auto text = [&](const wchar_t* value) {
            std::array<wchar_t, 80> block{};
            std::swprintf(block.data(), block.size(), L"\\StringFileInfo\\%04x%04x\\%ls",
                          static_cast<unsigned>(language[0]), static_cast<unsigned>(language[1]),
                          value);
            wchar_t* found = nullptr;
            return VerQueryValueW(data.data(), block.data(), reinterpret_cast<void**>(&found),
                                  &length) != FALSE
                       ? std::filesystem::path(found).string()
                       : std::string();
        };
        EXPECT_EQ(text(L"ProductVersion"), version);
        EXPECT_EQ(text(L"FileVersion"), version + ".0");
        EXPECT_EQ(text(L"OriginalFilename"), (folder / name).filename().string());
        EXPECT_EQ(std::to_string(HIWORD(info->dwFileVersionMS)) + '.' +
                      std::to_string(LOWORD(info->dwFileVersionMS)) + '.' +
                      std::to_string(HIWORD(info->dwFileVersionLS)) + '.' +
                      std::to_string(LOWORD(info->dwFileVersionLS)),
                  version + ".0");
    }
}

TEST(Library, ServesItsClassAndUnloads) {
    const HMODULE library = LoadLibraryW(library_path().c_str());
    ASSERT_NE(library, nullptr);
    const auto function = [library](const char* name) {
        return reinterpret_cast<void*>(GetProcAddress(library, name));
    };
    const auto can_unload =
        reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(function("DllCanUnloadNow"));
    const auto get_class = reinterpret_cast<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*)>(
        function("DllGetClassObject"));
    EXPECT_EQ(can_unload(), S_OK);
    {
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(get_class(kProfilerClassId, __uuidof(IClassFactory), factory.put_void()), S_OK);
        EXPECT_EQ(can_unload(), S_FALSE);
        ComPtr<IUnknown> object;
        ASSERT_EQ(factory->CreateInstance(nullptr, __uuidof(IUnknown), object.put_void()), S_OK);
        factory.reset();
        EXPECT_EQ(can_unload(), S_FALSE);
    }
    EXPECT_EQ(can_unload(), S_OK);
    EXPECT_EQ(get_class(kProfilerClassId, __uuidof(IClassFactory), nullptr), E_POINTER);
    void* object = nullptr;
    EXPECT_EQ(get_class(kAppId, __uuidof(IClassFactory), &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_EQ(GetModuleHandleW(L"CorvaneProfiler.dll"), nullptr);
}

} // namespace
} // namespace corvane
