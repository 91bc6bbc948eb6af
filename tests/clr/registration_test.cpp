// Registration with the system's own tool, and what it is for: the class is then found by its ids,
// by this process and by a runtime that is told no path. The registry is left as it was found.
#include "clr/com_ptr.h"
#include "tests/support/debuggee.h"
#include "tests/support/runtime_test.h"

#include <oaidl.h>
#include <ocidl.h>

#include <memory>
#include <utility>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

constexpr CLSID kClassId = {
    0x5D3A9C71, 0x0B6E, 0x4F28, {0x9A, 0x41, 0x7C, 0x2E, 0x8B, 0x04, 0xD1, 0xF6}};
const std::wstring kClassText = L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";
const std::wstring kAppText = L"{E1B7402C-93D5-4A6F-B28E-0F59C3A7D214}";
const std::wstring kTypeLibraryText = L"{8C64B0F3-2A17-4D95-A3BE-51F7D0C9E826}";

// --- The registry as text

// By name, "" for the default value; data as text, where it is none with its type and bytes.
using Values = std::map<std::wstring, std::wstring>;
// Every key below HKEY_CLASSES_ROOT, by path in capitals: others may have made a key that is
// shared.
using Snapshot = std::map<std::wstring, Values>;

struct KeyCloser {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using OwnedKey = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

std::wstring capitals(std::wstring text) {
    CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

std::wstring data_text(DWORD type, const std::vector<BYTE>& data) {
    if (type == REG_SZ) {
        const auto* const text = reinterpret_cast<const wchar_t*>(data.data());
        std::wstring copy(text, data.size() / sizeof(wchar_t));
        if (!copy.empty() && copy.back() == L'\0') {
            copy.pop_back();
        }
        return copy;
    }
    std::wstring text = L"type " + std::to_wstring(type);
    for (const BYTE byte : data) {
        text += L' ' + std::to_wstring(byte);
    }
    return text;
}

void read_keys(HKEY key, const std::wstring& path, Snapshot& snapshot) {
    DWORD keys = 0;
    DWORD key_length = 0;
    DWORD values = 0;
    DWORD value_length = 0;
    DWORD data_size = 0;
    ASSERT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, &key_length, nullptr, &values,
                               &value_length, &data_size, nullptr, nullptr),
              ERROR_SUCCESS);
    Values& read = snapshot[capitals(path)];
    std::wstring name(value_length + 1, L'\0');
    std::vector<BYTE> data(data_size);
    for (DWORD i = 0; i < values; ++i) {
        DWORD length = value_length + 1;
        DWORD size = data_size;
        DWORD type = 0;
        data.resize(data_size);
        ASSERT_EQ(RegEnumValueW(key, i, name.data(), &length, nullptr, &type, data.data(), &size),
                  ERROR_SUCCESS);
        data.resize(size);
        read[name.substr(0, length)] = data_text(type, data);
    }
    name.resize(key_length + 1);
    for (DWORD i = 0; i < keys; ++i) {
        DWORD length = key_length + 1;
        ASSERT_EQ(RegEnumKeyExW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr),
                  ERROR_SUCCESS);
        const std::wstring child = name.substr(0, length);
        HKEY opened = nullptr;
        ASSERT_EQ(RegOpenKeyExW(key, child.c_str(), 0, KEY_READ, &opened), ERROR_SUCCESS);
        const OwnedKey owned(opened);
        read_keys(opened, path.empty() ? child : path + L'\\' + child, snapshot);
    }
}

Snapshot classes_root() {
    Snapshot snapshot;
    read_keys(HKEY_CLASSES_ROOT, L"", snapshot);
    return snapshot;
}

// Of all these keys the server's own, which are read in no time.
Snapshot server_keys() {
    Snapshot snapshot;
    for (const std::wstring& path :
         {L"AppID\\" + kAppText, std::wstring(L"AppID\\CorvaneProfiler.dll"),
          std::wstring(L"CorvaneClrProfiler.1"), std::wstring(L"CorvaneClrProfiler"),
          L"CLSID\\" + kClassText, L"TypeLib\\" + kTypeLibraryText}) {
        HKEY opened = nullptr;
        if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &opened) == ERROR_SUCCESS) {
            const OwnedKey owned(opened);
            read_keys(opened, path, snapshot);
        }
    }
    return snapshot;
}

// What `after` has and `before` has not, or has otherwise. The view of 32-bit programs shares some
// keys with this one; what appears there is the system's doing.
Snapshot added(const Snapshot& before, const Snapshot& after) {
    Snapshot difference;
    for (const auto& [path, values] : after) {
        const auto found = before.find(path);
        if ((found == before.end() || found->second != values) &&
            !path.starts_with(L"WOW6432NODE\\")) {
            difference[path] = values;
        }
    }
    return difference;
}

// --- The registration

DWORD regsvr32(std::vector<std::wstring> arguments) {
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    DebuggeeOptions options;
    options.program = (fs::path(system) / "regsvr32.exe").wstring();
    options.arguments = std::move(arguments);
    const DebuggeeResult result = run_debuggee(options);
    if (result.timed_out) {
        throw std::runtime_error("regsvr32 did not end");
    }
    return result.exit_code;
}

// Whatever a test does, the library is not registered before and behind it.
class Registration {
public:
    explicit Registration(fs::path library) : library_(std::move(library)) { unregister(); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration() { unregister(); }

    DWORD add() const { return regsvr32({L"/s", library_.wstring()}); }
    DWORD remove() const { return regsvr32({L"/u", L"/s", library_.wstring()}); }

private:
    void unregister() const { EXPECT_EQ(remove(), 0U); }

    fs::path library_;
};

// The flags that the system finds in a type library, as it registers them.
std::wstring type_library_flags(const fs::path& library) {
    ComPtr<ITypeLib> loaded;
    TLIBATTR* attributes = nullptr;
    EXPECT_EQ(LoadTypeLibEx(library.c_str(), REGKIND_NONE, loaded.put()), S_OK);
    EXPECT_EQ(loaded->GetLibAttr(&attributes), S_OK);
    const std::wstring flags = std::to_wstring(attributes->wLibFlags);
    loaded->ReleaseTLibAttr(attributes);
    return flags;
}

Snapshot registered_keys(const fs::path& library) {
    const std::wstring path = library.wstring();
    const std::wstring class_key = L"CLSID\\" + kClassText;
    const std::wstring library_key = L"TypeLib\\" + kTypeLibraryText;
    const Snapshot keys = {
        {L"AppID\\" + kAppText, {{L"", L"CorvaneProfiler"}}},
        {L"AppID\\CorvaneProfiler.dll", {{L"AppID", kAppText}}},
        {L"CorvaneClrProfiler.1", {{L"", L"CClrProfiler Object"}}},
        {L"CorvaneClrProfiler.1\\CLSID", {{L"", kClassText}}},
        {L"CorvaneClrProfiler", {{L"", L"CClrProfiler Object"}}},
        {L"CorvaneClrProfiler\\CLSID", {{L"", kClassText}}},
        {L"CorvaneClrProfiler\\CurVer", {{L"", L"CorvaneClrProfiler.1"}}},
        {class_key, {{L"", L"CClrProfiler Object"}}},
        {class_key + L"\\ProgID", {{L"", L"CorvaneClrProfiler.1"}}},
        {class_key + L"\\VersionIndependentProgID", {{L"", L"CorvaneClrProfiler"}}},
        {class_key + L"\\Programmable", {}},
        {class_key + L"\\InprocServer32", {{L"", path}, {L"ThreadingModel", L"both"}}},
        {class_key + L"\\TypeLib", {{L"", kTypeLibraryText}}},
        {library_key, {}},
        {library_key + L"\\1.0", {{L"", L"Corvane profiler 1.0 Type Library"}}},
        {library_key + L"\\1.0\\0", {}},
        {library_key + L"\\1.0\\0\\win64", {{L"", path}}},
        {library_key + L"\\1.0\\FLAGS", {{L"", type_library_flags(library)}}},
        {library_key + L"\\1.0\\HELPDIR", {{L"", library.parent_path().wstring()}}},
    };
    Snapshot by_capitals;
    for (const auto& [path_of_key, values] : keys) {
        by_capitals[capitals(path_of_key)] = values;
    }
    return by_capitals;
}

TEST(RegisteredServer, HasExactlyItsKeysAndLeavesNoneBehind) {
    const fs::path library = built_file(L"CorvaneProfiler.dll");
    const Registration registration(library);
    // Keys that others share, which a server may add but must not remove.
    for (const wchar_t* shared : {L"AppID", L"CLSID", L"TypeLib"}) {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, shared, &key), ERROR_SUCCESS);
        RegCloseKey(key);
    }
    const Snapshot before = classes_root();
    ASSERT_GT(before.size(), 100U);
    ASSERT_EQ(registration.add(), 0U);
    EXPECT_EQ(added(before, classes_root()), registered_keys(library));
    ASSERT_EQ(registration.remove(), 0U);
    EXPECT_EQ(classes_root(), before);
}

TEST(RegisteredServer, MayBeRegisteredAndUnregisteredTwice) {
    const fs::path library = built_file(L"CorvaneProfiler.dll");
    const Registration registration(library);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(registration.add(), 0U);
        EXPECT_EQ(server_keys(), registered_keys(library));
    }
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(registration.remove(), 0U);
        EXPECT_EQ(server_keys(), Snapshot());
    }
}

TEST(RegisteredServer, MayLieInAFolderOutsideAscii) {
    const OwnFolder folder;
    const fs::path own = folder.path() / L"B\u00fccher's \u0416\u4e66";
    const fs::path library = own / "CorvaneProfiler.dll";
    fs::create_directory(own);
    fs::copy_file(built_file(L"CorvaneProfiler.dll"), library);
    const Registration registration(library);
    ASSERT_EQ(registration.add(), 0U);
    EXPECT_EQ(server_keys(), registered_keys(library));
    ASSERT_EQ(registration.remove(), 0U);
    EXPECT_EQ(server_keys(), Snapshot());
}

// COM of this thread for the length of a test; the library is unloaded with it.
class Com {
public:
    Com() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    Com(const Com&) = delete;
    Com& operator=(const Com&) = delete;
    ~Com() { CoUninitialize(); }
};

TEST(RegisteredServer, IsFoundByItsIds) {
    const Com com;
    const Registration registration(built_file(L"CorvaneProfiler.dll"));
    CLSID found = {};
    EXPECT_EQ(CLSIDFromProgID(L"CorvaneClrProfiler.1", &found), CO_E_CLASSSTRING);
    ComPtr<IUnknown> object;
    EXPECT_EQ(CoCreateInstance(kClassId, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IUnknown),
                               object.put_void()),
              REGDB_E_CLASSNOTREG);

    ASSERT_EQ(registration.add(), 0U);
    for (const wchar_t* id : {L"CorvaneClrProfiler.1", L"CorvaneClrProfiler"}) {
        found = {};
        EXPECT_EQ(CLSIDFromProgID(id, &found), S_OK);
        EXPECT_EQ(found, kClassId);
    }
    LPOLESTR id = nullptr;
    ASSERT_EQ(ProgIDFromCLSID(kClassId, &id), S_OK);
    EXPECT_STREQ(id, L"CorvaneClrProfiler.1");
    CoTaskMemFree(id);
    EXPECT_EQ(CoCreateInstance(kClassId, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IUnknown),
                               object.put_void()),
              S_OK);
}

TEST(RegisteredServer, DescribesItsClass) {
    const Com com;
    const Registration registration(built_file(L"CorvaneProfiler.dll"));
    ASSERT_EQ(registration.add(), 0U);
    ComPtr<IProvideClassInfo> object;
    ASSERT_EQ(CoCreateInstance(kClassId, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IProvideClassInfo),
                               object.put_void()),
              S_OK);
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(object->GetClassInfo(info.put()), S_OK);
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(info->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(attributes->typekind, TKIND_COCLASS);
    EXPECT_EQ(attributes->guid, kClassId);
    info->ReleaseTypeAttr(attributes);
}

class RegisteredProfiler : public EachRuntimeTest {};
INSTANTIATE_TEST_SUITE_P(Runtimes, RegisteredProfiler, ::testing::ValuesIn(kRuntimes),
                         runtime_name);

TEST_P(RegisteredProfiler, IsLoadedByARuntimeThatKnowsItsClassAlone) {
    configure("<configuration><instrumentation><applications>"
              "<application name='program.exe' corvane='Enabled'/>"
              "</applications></instrumentation></configuration>");
    const Launch launch = {.names_library = false, .with_witness = false};
    const Registration registration(library);
    EXPECT_EQ(watch(launch).log, Lines());
    ASSERT_EQ(registration.add(), 0U);
    EXPECT_EQ(watch(launch).log, traced_log());
}

} // namespace
} // namespace corvane::testing
