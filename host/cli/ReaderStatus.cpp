#include "ReaderStatus.h"

#include <algorithm>

namespace lumo::cli {

const std::vector<ReaderStatus>& readerStatuses() {
    static const std::vector<ReaderStatus> statuses = {
        {kBadValueStatus, "", "it is no map, or a value in it has the wrong type or size"},
        {1, "", "an entry in it is not the one that has to come next"},
        {2, "QCBOR_ERR_ARRAY_NESTING_TOO_DEEP", "its arrays and maps are nested too deeply"},
        {3, "QCBOR_ERR_ARRAY_TOO_LONG", "an array or a map in it announces too many items"},
        {5, "QCBOR_ERR_UNSUPPORTED", "an item in it has no definite length, or is reserved"},
        {6, "QCBOR_ERR_HIT_END", "it ends too early"},
        {9, "QCBOR_ERR_INT_OVERFLOW", "a negative number in it has more than 64 bits"},
        {10, "QCBOR_ERR_MAP_LABEL_TYPE", "an entry's label in it is no number and no string"},
        {13, "QCBOR_ERR_DATE_OVERFLOW", "a date in it is too far away"},
        {14, "QCBOR_ERR_INVALID_CBOR", "an item in it is no CBOR"},
        {15, "QCBOR_ERR_BAD_OPT_TAG", "an item in it has a CBOR tag of another type"},
        {16, "QCBOR_ERR_EXTRA_BYTES", "bytes follow its end"},
    };
    return statuses;
}

const ReaderStatus* findReaderStatus(int32_t number) {
    const auto found =
        std::find_if(readerStatuses().begin(), readerStatuses().end(),
                     [number](const ReaderStatus& each) { return each.number == number; });
    return found == readerStatuses().end() ? nullptr : &*found;
}

std::string unreadableText(int32_t status) {
    const std::string number = std::to_string(status);
    const ReaderStatus* known = findReaderStatus(status);
    if (known == nullptr)
        return "the answer could not be read: its status " + number + " is no code";
    return std::string("the answer could not be read: ") + known->meaning + " (status " + number +
           " of its reader)";
}

}  // namespace lumo::cli
