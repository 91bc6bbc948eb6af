// Any bytes as a program or a DLL: what is read of them is a part of them, and no image is read
// from what is none.
#include "tests/fuzz/require.h"
#include "tools/corvane/image_file.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using corvane::require;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto image = corvane::tool::read_image(bytes);
    if (!image) {
        return 0;
    }
    require(bytes.starts_with("MZ"), "an image begins as one");
    for (const std::string& name : image->exports) {
        require(name.size() <= 512 && bytes.find(name) != bytes.npos,
                "an export's name is in the file");
    }
    require(!image->bundle || image->is_app_host, "only a host carries a bundle");
    require(!image->is_app_host || !(image->is_managed || image->is_native_aot),
            "a program is of one kind");
    if (image->bundle) {
        require(bytes.find(image->bundle->runtime_config) != bytes.npos,
                "the configuration is in the file");
        for (const std::string& name : image->bundle->files) {
            require(bytes.find(name) != bytes.npos, "a file's name is in the file");
        }
    }
    return 0;
}
