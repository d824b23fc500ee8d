#include "Outputs.h"

#include <cstdlib>
#include <cstring>

namespace lumo::test {
namespace {

void release(const uint8_t* bytes) {
    std::free(const_cast<uint8_t*>(bytes));
}

std::string showChain(const keymaster_cert_chain_t& chain, const keymaster_blob_t* callers_entry) {
    const std::string count = "/" + std::to_string(chain.entry_count);
    if (chain.entries == nullptr) return "null" + count;
    if (chain.entries == callers_entry) return "the caller's" + count;
    std::string text = "<";
    for (size_t i = 0, same = 1; i < chain.entry_count; i += same, same = 1) {
        const auto entry = [&](size_t at) {
            return show(chain.entries[at].data, chain.entries[at].data_length);
        };
        while (i + same < chain.entry_count && entry(i + same) == entry(i)) ++same;
        text += (i == 0 ? "" : ",") + entry(i) + (same > 1 ? " x " + std::to_string(same) : "");
    }
    return text + ">";
}

}  // namespace

Outputs::Outputs() {
    std::memset(&hmac, 0x55, sizeof(hmac));
    std::memset(&token, 0x55, sizeof(token));
}

Outputs::~Outputs() {
    release(blob.key_material);
    release(output.data);
    keymaster_free_param_set(&out);
    keymaster_free_characteristics(&chars);
    for (uint8_t* part : {ec_key.priv_key, ec_key.pubkey_x, ec_key.pubkey_y, ec_sig.r, ec_sig.s}) {
        release(part);
    }
    if (chain.entries == nullptr || chain.entries == &callers_entry) return;
    for (size_t i = 0; i < chain.entry_count; ++i) release(chain.entries[i].data);
    std::free(chain.entries);
}

std::vector<std::pair<std::string, std::string>> Outputs::texts() const {
    return {
        {"blob", show(blob.key_material, blob.key_material_size)},
        {"output", show(output.data, output.data_length)},
        {"out", show(out)},
        {"hw", show(chars.hw_enforced)},
        {"sw", show(chars.sw_enforced)},
        {"chain", showChain(chain, &callers_entry)},
        {"handle", std::to_string(handle)},
        {"consumed", std::to_string(consumed)},
        {"check", showBytes(check)},
        {"hmac", show(hmac.seed, 32) + " " + show(hmac.nonce, 32)},
        {"token", std::to_string(token.challenge) + " " + std::to_string(token.timestamp) + " " +
                      std::to_string(token.security_level) + " " + show(token.mac, 32)},
        {"supported", supported ? "yes" : "no"},
        {"ec_key", std::to_string(ec_key.key_size) + " " +
                       show(ec_key.priv_key, ec_key.priv_key_len) + " " +
                       show(ec_key.pubkey_x, ec_key.pubkey_x_len) + " " +
                       show(ec_key.pubkey_y, ec_key.pubkey_y_len)},
        {"ec_sig", show(ec_sig.r, ec_sig.r_len) + " " + show(ec_sig.s, ec_sig.s_len)},
        {"said", said},
    };
}

}  // namespace lumo::test
