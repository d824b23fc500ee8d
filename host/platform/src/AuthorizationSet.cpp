#include <keymaster/authorization_set.h>
#include <stdlib.h>
#include <string.h>

#include <limits>
#include <utility>

namespace keymaster {

namespace {

bool hasBytes(const keymaster_key_param_t& param) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(param.tag);
    return type == KM_BYTES || type == KM_BIGNUM;
}

// Whether no pointer with a length is null.
bool isComplete(const keymaster_key_param_set_t& set) {
    if (set.params == nullptr) return set.length == 0;
    for (size_t i = 0; i < set.length; ++i) {
        const keymaster_key_param_t& param = set.params[i];
        if (hasBytes(param) && param.blob.data == nullptr && param.blob.data_length != 0) {
            return false;
        }
    }
    return true;
}

// Adds n to *sum, or returns false where that does not fit.
bool addTo(size_t* sum, size_t n) {
    if (n > std::numeric_limits<size_t>::max() - *sum) return false;
    *sum += n;
    return true;
}

// Adds the sizes of the parameters and their bytes to *size.
bool addSizeOf(const keymaster_key_param_set_t& set, size_t* size) {
    for (size_t i = 0; i < set.length; ++i) {
        const keymaster_key_param_t& param = set.params[i];
        if (!addTo(size, sizeof(param))) return false;
        if (hasBytes(param) && !addTo(size, param.blob.data_length)) return false;
    }
    return true;
}

// Copies the parameters to *params and their bytes to *bytes, and moves both pointers past them.
void copyTo(const keymaster_key_param_set_t& set, keymaster_key_param_t** params, uint8_t** bytes) {
    for (size_t i = 0; i < set.length; ++i) {
        keymaster_key_param_t param = set.params[i];
        if (hasBytes(param)) {
            const size_t length = param.blob.data_length;
            if (length != 0) memcpy(*bytes, param.blob.data, length);
            param.blob.data = *bytes;
            *bytes += length;
        }
        *(*params)++ = param;
    }
}

}  // namespace

AuthorizationSet::AuthorizationSet(const keymaster_key_param_t* elems, size_t count)
    : AuthorizationSet() {
    Reinitialize(elems, count);
}

AuthorizationSet::AuthorizationSet(const keymaster_key_param_set_t& set) : AuthorizationSet() {
    Reinitialize(set);
}

AuthorizationSet::AuthorizationSet(const AuthorizationSet& other)
    : keymaster_key_param_set_t{nullptr, 0} {
    *this = other;
}

AuthorizationSet::AuthorizationSet(AuthorizationSet&& other) noexcept : AuthorizationSet() {
    *this = std::move(other);
}

AuthorizationSet& AuthorizationSet::operator=(const AuthorizationSet& other) {
    if (this == &other) return *this;
    Reinitialize(other);
    if (other.error_ != OK) error_ = other.error_;
    return *this;
}

AuthorizationSet& AuthorizationSet::operator=(AuthorizationSet&& other) noexcept {
    if (this == &other) return *this;
    adopt(std::move(other.block_), other.length);
    error_ = std::exchange(other.error_, OK);
    other.Clear();
    return *this;
}

bool AuthorizationSet::Reinitialize(const keymaster_key_param_t* elems, size_t count) {
    return replaceBy({nullptr, 0}, {const_cast<keymaster_key_param_t*>(elems), count});
}

bool AuthorizationSet::push_back(keymaster_key_param_t elem) {
    return push_back(keymaster_key_param_set_t{&elem, 1});
}

bool AuthorizationSet::push_back(const keymaster_key_param_set_t& set) {
    return error_ == OK && replaceBy(*this, set);
}

void AuthorizationSet::Clear() {
    adopt(Block(), 0);
}

keymaster_key_param_t& AuthorizationSet::operator[](int at) {
    if (at >= 0 && static_cast<size_t>(at) < length) return params[at];
    outOfRange_ = {};
    return outOfRange_;
}

keymaster_key_param_t AuthorizationSet::operator[](int at) const {
    return at >= 0 && static_cast<size_t>(at) < length ? params[at] : keymaster_key_param_t{};
}

int AuthorizationSet::find(keymaster_tag_t tag, int begin) const {
    for (size_t i = begin < 0 ? 0 : static_cast<size_t>(begin) + 1; i < length; ++i) {
        if (params[i].tag == tag) return static_cast<int>(i);
    }
    return -1;
}

void WipeAndFree::operator()(void* block) const {
    explicit_bzero(block, size);
    free(block);
}

// The new content is complete before the old one is freed: the sources may be (parts of) this set.
bool AuthorizationSet::replaceBy(const keymaster_key_param_set_t& first,
                                 const keymaster_key_param_set_t& second) {
    if (!isComplete(first) || !isComplete(second)) return fail(MALFORMED_DATA);
    size_t size = 0;
    if (!addSizeOf(first, &size) || !addSizeOf(second, &size)) return fail(ALLOCATION_FAILURE);

    Block block(size == 0 ? nullptr : malloc(size), WipeAndFree{size});
    if (block == nullptr && size != 0) return fail(ALLOCATION_FAILURE);

    const size_t count = first.length + second.length;
    auto* to = static_cast<keymaster_key_param_t*>(block.get());
    auto* bytes = static_cast<uint8_t*>(block.get()) + count * sizeof(keymaster_key_param_t);
    copyTo(first, &to, &bytes);
    copyTo(second, &to, &bytes);
    adopt(std::move(block), count);
    error_ = OK;
    return true;
}

bool AuthorizationSet::fail(Error error) {
    Clear();
    error_ = error;
    return false;
}

void AuthorizationSet::adopt(Block block, size_t count) {
    block_ = std::move(block);
    params = static_cast<keymaster_key_param_t*>(block_.get());
    length = count;
}

}  // namespace keymaster
