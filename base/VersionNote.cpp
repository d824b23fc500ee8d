// Says in the library's ELF file which version it is, so that one can tell from a device's file:
// `readelf -n liblumokeymaster4.so`.

#include <cstddef>
#include <cstdint>

#include "Version.h"

namespace {

constexpr char kMetadata[] =
    R"({"type":"library","name":"liblumokeymaster4","version":")" LUMO_KEYMASTER_VERSION R"("})";

// An ELF note: three words, then name and contents, each padded to four bytes. Owner and type are
// those published for a package's metadata in JSON, which readelf prints in clear.
struct VersionNote {
    uint32_t name_size = sizeof(name);
    uint32_t contents_size = sizeof(kMetadata);
    uint32_t type = 0xCAFE1A7E;
    char name[4] = "FDO";
    alignas(4) char contents[sizeof(kMetadata)] = {};
};

constexpr VersionNote makeNote() {
    VersionNote note;
    for (size_t i = 0; i < sizeof(kMetadata); i++) note.contents[i] = kMetadata[i];
    return note;
}

// Nothing refers to it: `used` keeps it. Left to itself, a compiler would align it to more than
// readers of notes take.
[[gnu::section(".note.package"), gnu::used]] alignas(4) constexpr VersionNote kNote = makeNote();

}  // namespace
