#include "selection/image_metadata.h"

#include "base/metadata_engine.h"
#include "clr/cor_profiler.h"

#include <cstdint>

namespace corvane {
namespace {

constexpr std::uint32_t kMetadataSignature = 0x424A5342;

// What stands at a place of the image once it is loaded. Null for a place in none of its sections.
const std::byte* at(const std::byte* image, const IMAGE_NT_HEADERS64& headers, bool is_flat,
                    const IMAGE_DATA_DIRECTORY& place) {
    if (!is_flat) {
        return image + place.VirtualAddress;
    }
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(&headers);
    for (WORD i = 0; i < headers.FileHeader.NumberOfSections; ++i, ++section) {
        const std::uint64_t offset = std::uint64_t{place.VirtualAddress} - section->VirtualAddress;
        if (offset < section->SizeOfRawData && place.Size <= section->SizeOfRawData - offset) {
            return image + section->PointerToRawData + offset;
        }
    }
    return nullptr;
}

template <class T>
const T* as(const std::byte* place) {
    return reinterpret_cast<const T*>(place);
}

} // namespace

std::span<const std::byte> find_image_metadata(const std::byte* image, bool is_flat) {
    if (image == nullptr || as<IMAGE_DOS_HEADER>(image)->e_magic != IMAGE_DOS_SIGNATURE) {
        return {};
    }
    const std::byte* const start = image + as<IMAGE_DOS_HEADER>(image)->e_lfanew;
    const auto& headers = *as<IMAGE_NT_HEADERS64>(start);
    if (headers.Signature != IMAGE_NT_SIGNATURE) {
        return {};
    }
    // An assembly for every processor has the headers of a 32-bit image.
    const auto& directories = headers.OptionalHeader.Magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC
                                  ? headers.OptionalHeader.DataDirectory
                                  : as<IMAGE_NT_HEADERS32>(start)->OptionalHeader.DataDirectory;
    const IMAGE_DATA_DIRECTORY& cli = directories[IMAGE_DIRECTORY_ENTRY_COM_DESCRIPTOR];
    const std::byte* const cli_header =
        cli.Size < sizeof(IMAGE_COR20_HEADER) ? nullptr : at(image, headers, is_flat, cli);
    if (cli_header == nullptr) {
        return {};
    }
    const IMAGE_DATA_DIRECTORY& place = as<IMAGE_COR20_HEADER>(cli_header)->MetaData;
    const std::byte* const metadata =
        place.Size < sizeof(kMetadataSignature) ? nullptr : at(image, headers, is_flat, place);
    if (metadata == nullptr || *as<std::uint32_t>(metadata) != kMetadataSignature) {
        return {};
    }
    return {metadata, place.Size};
}

ComPtr<IMetaDataImport> open_image_metadata(const std::byte* image, bool is_flat) {
    const std::span<const std::byte> bytes = find_image_metadata(image, is_flat);
    ComPtr<IMetaDataImport> metadata;
    if (bytes.empty()) {
        return metadata;
    }
    const ComPtr<IMetaDataDispenserEx> engine = metadata_engine();
    if (!engine ||
        FAILED(engine->OpenScopeOnMemory(bytes.data(), static_cast<ULONG>(bytes.size()), ofRead,
                                         __uuidof(IMetaDataImport), metadata.put_unknown()))) {
        metadata.reset();
    }
    return metadata;
}

ComPtr<IMetaDataImport> open_image_metadata_of_module(const std::byte* image, DWORD flags) {
    const auto is_set = [](const wchar_t* name) {
        return GetEnvironmentVariableW(name, nullptr, 0) != 0;
    };
    const bool may_be_edited =
        is_set(L"DOTNET_MODIFIABLE_ASSEMBLIES") || is_set(L"COMPlus_MODIFIABLE_ASSEMBLIES");
    return may_be_edited ? ComPtr<IMetaDataImport>()
                         : open_image_metadata(image, (flags & COR_PRF_MODULE_FLAT_LAYOUT) != 0);
}

} // namespace corvane
