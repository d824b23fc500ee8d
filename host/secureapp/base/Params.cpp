#include "secureapp/base/Params.h"

#include <algorithm>
#include <utility>

namespace lumo::secureapp {

Param intParam(keymaster_tag_t tag, uint64_t value) {
    return {tag, value, {}};
}

Param boolParam(keymaster_tag_t tag) {
    return {tag, 1, {}};
}

Param bytesParam(keymaster_tag_t tag, ByteView value) {
    return {tag, 0, value.copy()};
}

void ParamSet::add(const ParamSet& others) {
    // By index and after reserving: `others` may be this very list.
    const size_t count = others.params_.size();
    params_.reserve(params_.size() + count);
    for (size_t i = 0; i < count; ++i) params_.push_back(others.params_[i]);
}

void ParamSet::removeAll(keymaster_tag_t tag) {
    const auto has_tag = [tag](const Param& param) { return param.tag == tag; };
    params_.erase(std::remove_if(params_.begin(), params_.end(), has_tag), params_.end());
}

ParamSet ParamSet::part(size_t first, size_t count) const {
    ParamSet result;
    const size_t begin = std::min(first, size());
    const size_t end = begin + std::min(count, size() - begin);
    result.reserve(end - begin);
    for (size_t i = begin; i < end; ++i) result.add(params_[i]);
    return result;
}

bool ParamSet::contains(keymaster_tag_t tag, uint64_t value) const {
    return std::any_of(params_.begin(), params_.end(), [&](const Param& param) {
        return param.tag == tag && param.integer == value;
    });
}

size_t ParamSet::count(keymaster_tag_t tag) const {
    const auto has_tag = [tag](const Param& param) { return param.tag == tag; };
    return static_cast<size_t>(std::count_if(params_.begin(), params_.end(), has_tag));
}

const Param* ParamSet::find(keymaster_tag_t tag) const {
    const auto has_tag = [tag](const Param& param) { return param.tag == tag; };
    const auto found = std::find_if(params_.begin(), params_.end(), has_tag);
    return found == params_.end() ? nullptr : &*found;
}

std::optional<uint64_t> ParamSet::integer(keymaster_tag_t tag) const {
    const Param* param = find(tag);
    if (param == nullptr) return std::nullopt;
    return param->integer;
}

std::vector<uint64_t> ParamSet::integers(keymaster_tag_t tag) const {
    std::vector<uint64_t> values;
    for (const Param& param : params_) {
        if (param.tag == tag) values.push_back(param.integer);
    }
    return values;
}

ByteView ParamSet::bytes(keymaster_tag_t tag) const {
    const Param* param = find(tag);
    return param == nullptr ? ByteView() : ByteView(param->bytes);
}

}  // namespace lumo::secureapp
