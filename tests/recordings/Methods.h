// The methods that rows call, with named arguments.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "Outputs.h"

namespace lumo::test {

// The arguments of one call as its row gives them. What a row does not give is null, zero or empty;
// an output is given unless the row says `null`.
class Args {
  public:
    enum class Kind { kParams, kBlob, kOutput };

    explicit Args(std::map<std::string, std::string> texts) : texts_(std::move(texts)) {}

    const keymaster_key_param_set_t* params(const std::string& name);
    const keymaster_blob_t* blob(const std::string& name);
    const keymaster_key_blob_t* key(const std::string& name);
    Bytes bytes(const std::string& name);
    uint64_t number(const std::string& name);
    template <typename Enum>
    Enum as(const std::string& name) {
        return static_cast<Enum>(number(name));
    }
    template <typename Place>
    Place* out(const std::string& name, Place& place) {
        kinds[name] = Kind::kOutput;
        return isNull(name) ? nullptr : &place;
    }
    std::string text(const std::string& name) const;
    bool is(const std::string& name, const char* wanted) const { return text(name) == wanted; }
    bool isNull(const std::string& name) const { return is(name, "null"); }
    bool has(const std::string& name) const { return texts_.count(name) != 0; }

    std::map<std::string, Kind> kinds;  // of the pointers that the method has asked for

  private:
    std::map<std::string, std::string> texts_;
    std::deque<BlobValue> blobs_;
    std::deque<ParamsValue> params_;
};

// Calls a method by its name; throws std::invalid_argument for a name that there is not.
int callMethod(const std::string& name, keymasterdevice::KeymasterHalDevice& device, Args& args,
               Outputs& outputs);

}  // namespace lumo::test
