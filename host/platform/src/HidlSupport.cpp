#include <android/log.h>
#include <hidl/HidlSupport.h>
#include <stdlib.h>

namespace android::hardware {

namespace details {

void logAlwaysFatal(const char* message) {
    __android_log_assert(nullptr, "HidlSupport", "%s", message);
    abort();  // where the log's own function has been replaced
}

}  // namespace details

hidl_string& hidl_string::operator=(const hidl_string& other) {
    if (this != &other) assignCopy(other.c_str(), other.size());
    return *this;
}

hidl_string& hidl_string::operator=(const char* text) {
    assignCopy(text, text == nullptr ? 0 : strlen(text));
    return *this;
}

hidl_string& hidl_string::operator=(const std::string& text) {
    assignCopy(text.data(), text.size());
    return *this;
}

hidl_string& hidl_string::operator=(hidl_string&& other) noexcept {
    if (this == &other) return *this;
    release();
    buffer_ = std::exchange(other.buffer_, "");
    size_ = std::exchange(other.size_, 0);
    ownsBuffer_ = std::exchange(other.ownsBuffer_, false);
    return *this;
}

void hidl_string::setToExternal(const char* text, size_t size) {
    if (size > std::numeric_limits<uint32_t>::max()) {
        details::logAlwaysFatal("hidl_string can't hold more than 2^32 - 1 characters");
    }
    release();
    buffer_ = text;
    size_ = static_cast<uint32_t>(size);
    ownsBuffer_ = false;
}

void hidl_string::release() {
    if (ownsBuffer_) delete[] static_cast<const char*>(buffer_);
}

// Copies before the old buffer is freed: the source may lie in it.
void hidl_string::assignCopy(const char* text, size_t length) {
    if (length == 0) return clear();
    char* copy = new char[length + 1];
    memcpy(copy, text, length);
    copy[length] = '\0';
    setToExternal(copy, length);
    ownsBuffer_ = true;
}

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) return *this;
    native_handle_t* clone = nullptr;
    if (other.handle_ != nullptr) {
        clone = native_handle_clone(other.handle_);
        if (clone == nullptr) details::logAlwaysFatal("Failed to clone a native handle");
    }
    setTo(clone, true);
    return *this;
}

hidl_handle& hidl_handle::operator=(const native_handle_t* handle) {
    release();
    handle_ = handle;
    ownsHandle_ = false;
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this == &other) return *this;
    release();
    handle_ = std::exchange(other.handle_, nullptr);
    ownsHandle_ = std::exchange(other.ownsHandle_, false);
    return *this;
}

void hidl_handle::setTo(native_handle_t* handle, bool shouldOwn) {
    release();
    handle_ = handle;
    ownsHandle_ = shouldOwn;
}

void hidl_handle::release() {
    if (!ownsHandle_ || handle_ == nullptr) return;
    native_handle_close(handle_);
    native_handle_delete(const_cast<native_handle_t*>(getNativeHandle()));
}

}  // namespace android::hardware
