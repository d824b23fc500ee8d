# liblumokeymaster4.so, from the five folders that ship on a device. The host build adds nothing to
# them but the include path. Android.bp lists the same sources; a check compares the two lists.

set(LUMO_LIBRARY_SOURCES
    base/Memory.cpp
    base/Outputs.cpp
    base/VersionNote.cpp
    crypto/KeymasterCryptoDevice.cpp
    crypto/TagNames.cpp
    crypto/keyblob/AttestationDates.cpp
    crypto/keyblob/KeyBlobReader.cpp
    device/KeymasterHalDevice.cpp
    device/cbor/CborAgreement.cpp
    device/cbor/CborAttestation.cpp
    device/cbor/CborDeviceState.cpp
    device/cbor/CborExchange.cpp
    device/cbor/CborKeys.cpp
    device/cbor/CborOperations.cpp
    device/legacy/FbeKey.cpp
    device/legacy/LegacyAgreement.cpp
    device/legacy/LegacyAttestation.cpp
    device/legacy/LegacyDeviceState.cpp
    device/legacy/LegacyEcKey.cpp
    device/legacy/LegacyExchange.cpp
    device/legacy/LegacyKeys.cpp
    device/legacy/LegacyOperations.cpp
    device/legacy/LegacyParams.cpp
    device/legacy/LegacyPublicKey.cpp
    serialize/AgreementMessages.cpp
    serialize/AttestationMessages.cpp
    serialize/CborHelpers.cpp
    serialize/DeviceStateMessages.cpp
    serialize/KeyMessages.cpp
    serialize/OperationMessages.cpp
    serialize/Parameters.cpp
    serialize/RequestWriter.cpp
    serialize/ResponseReader.cpp
    service/AuthTokenParams.cpp
    service/Keymaster41Device.cpp
    service/Keymaster4Device.cpp
    service/KmParamSet.cpp
    service/PlatformVersion.cpp
)

add_library(lumokeymaster4_headers INTERFACE)
target_include_directories(lumokeymaster4_headers INTERFACE
    ${CMAKE_SOURCE_DIR}/service ${CMAKE_SOURCE_DIR}/device ${CMAKE_SOURCE_DIR}/serialize
    ${CMAKE_SOURCE_DIR}/crypto ${CMAKE_SOURCE_DIR}/crypto/keyblob ${CMAKE_SOURCE_DIR}/base)
target_link_libraries(lumokeymaster4_headers INTERFACE lumo::platform lumo::qcbor lumo::crypto
                                                       lumo_transport_api)

# Compiled once; the product and the library for tests are linked from the same objects.
lumo_library(lumokeymaster4_objects OBJECT ${LUMO_LIBRARY_SOURCES})
target_link_libraries(lumokeymaster4_objects PUBLIC lumokeymaster4_headers)

# Nothing runs there, and clang's address sanitizer would pad the note.
set_source_files_properties(base/VersionNote.cpp PROPERTIES COMPILE_OPTIONS -fno-sanitize=all)

# For tests: everything reachable, the transport left to the test to link.
add_library(lumokeymaster4_static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:lumokeymaster4_objects>)
target_link_libraries(lumokeymaster4_static PUBLIC lumokeymaster4_headers)

# The product, with its exports chosen by the version script.
add_library(lumokeymaster4 SHARED $<TARGET_OBJECTS:lumokeymaster4_objects>)
target_link_libraries(lumokeymaster4 PUBLIC lumokeymaster4_headers lumo_transport)
target_link_options(lumokeymaster4 PRIVATE
    LINKER:--version-script=${CMAKE_SOURCE_DIR}/liblumokeymaster4.map LINKER:--no-undefined)
set_target_properties(lumokeymaster4 PROPERTIES
    LINK_DEPENDS ${CMAKE_SOURCE_DIR}/liblumokeymaster4.map)
