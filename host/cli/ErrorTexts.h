// What each published error code means: for the advice behind a failure, and for lumokm error.
#pragma once

#include <android/hardware/keymaster/4.1/types.h>

#include <string>
#include <vector>

namespace lumo::cli {

// Who of the three between a client and a key may say a code, as bits.
enum Speaker : unsigned {
    kNobody = 0,  // published, and used by none of them
    kLibrary = 1,
    kTransport = 2,
    kApplication = 4,  // the secure application
};

struct ErrorText {
    ::android::hardware::keymaster::V4_1::ErrorCode error;
    unsigned speakers;
    const char* meaning;
    const char* advice;  // what to try
};

// By falling number: every code of the 4.1 interface, which has those of 4.0.
const std::vector<ErrorText>& errorTexts();

// Null for a number that is no published code.
const ErrorText* findErrorText(::android::hardware::keymaster::V4_1::ErrorCode error);

// The speakers' names.
std::vector<std::string> namesOf(unsigned speakers);

}  // namespace lumo::cli
