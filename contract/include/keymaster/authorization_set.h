// The parameter set that owns what it holds, from the platform's keymaster messages.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>

namespace keymaster {

class AuthorizationSet : public keymaster_key_param_set_t {
  public:
    enum Error { OK, ALLOCATION_FAILURE, MALFORMED_DATA };

    AuthorizationSet();
    AuthorizationSet(const keymaster_key_param_t* elems, size_t count);
    explicit AuthorizationSet(const keymaster_key_param_set_t& set);
    AuthorizationSet(const AuthorizationSet& set);
    AuthorizationSet(AuthorizationSet&& set);
    virtual ~AuthorizationSet();
    AuthorizationSet& operator=(const AuthorizationSet& set);
    AuthorizationSet& operator=(AuthorizationSet&& set);
    bool Reinitialize(const keymaster_key_param_t* elems, size_t count);
    bool Reinitialize(const AuthorizationSet& set);
    bool Reinitialize(const keymaster_key_param_set_t& set);
    bool push_back(keymaster_key_param_t elem);
    bool push_back(const keymaster_key_param_set_t& set);
    Error is_valid() const;
    void Clear();
    const keymaster_key_param_t* data() const;
    size_t size() const;
    bool empty() const;
};

}  // namespace keymaster
