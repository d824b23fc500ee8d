#include "LibraryVersion.h"

#include <link.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

namespace lumo::cli {

namespace {

// Owner and type of a note that holds a package's metadata as a JSON text.
constexpr char kOwner[] = "FDO";
constexpr uint32_t kMetadataType = 0xCAFE1A7E;

size_t padded(size_t size) {
    return (size + 3) / 4 * 4;
}

// The version in one metadata text; empty where it is of another library.
std::string versionIn(std::string_view text) {
    const auto metadata = nlohmann::json::parse(text.substr(0, text.find('\0')), nullptr, false);
    if (!metadata.is_object() || metadata.value("name", "") != "liblumokeymaster4") return {};
    return metadata.value("version", "");
}

// The version in a segment of notes aligned to four bytes; empty where none of them is ours.
std::string versionInNotes(std::string_view notes) {
    ElfW(Nhdr) header;
    while (notes.size() >= sizeof(header)) {
        memcpy(&header, notes.data(), sizeof(header));
        notes.remove_prefix(sizeof(header));
        const size_t name_size = padded(header.n_namesz);
        const size_t size = name_size + padded(header.n_descsz);
        if (size > notes.size()) break;
        const std::string_view owner = notes.substr(0, header.n_namesz);
        if (header.n_type == kMetadataType && owner == std::string_view(kOwner, sizeof(kOwner))) {
            std::string version = versionIn(notes.substr(name_size, header.n_descsz));
            if (!version.empty()) return version;
        }
        notes.remove_prefix(size);
    }
    return {};
}

int visit(dl_phdr_info* object, size_t /*size*/, void* result) {
    std::string& version = *static_cast<std::string*>(result);
    for (size_t i = 0; i < object->dlpi_phnum && version.empty(); i++) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_NOTE || segment.p_align > 4) continue;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader gives addresses as numbers
        const auto* bytes = reinterpret_cast<const char*>(object->dlpi_addr + segment.p_vaddr);
        version = versionInNotes({bytes, segment.p_memsz});
    }
    return version.empty() ? 0 : 1;
}

}  // namespace

std::string libraryVersion() {
    std::string version;
    dl_iterate_phdr(visit, &version);
    return version.empty() ? "unknown" : version;
}

}  // namespace lumo::cli
