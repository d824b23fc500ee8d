# Finds what the project takes from Debian and offers it as targets:
#   lumo::android    libutils, liblog and libbase of the Android host packages
#   lumo::crypto     libcrypto: BoringSSL by default, OpenSSL 3 with LUMO_CRYPTO=openssl
#   lumo::cbor       libcbor

find_path(LUMO_ANDROID_INCLUDE utils/RefBase.h PATH_SUFFIXES android REQUIRED)
find_library(LUMO_ANDROID_UTILS utils PATH_SUFFIXES android REQUIRED)
find_library(LUMO_ANDROID_LOG log PATH_SUFFIXES android REQUIRED)
find_library(LUMO_ANDROID_BASE base PATH_SUFFIXES android REQUIRED)
get_filename_component(LUMO_ANDROID_LIBDIR ${LUMO_ANDROID_UTILS} DIRECTORY)

add_library(lumo_android INTERFACE)
add_library(lumo::android ALIAS lumo_android)
target_link_libraries(lumo_android INTERFACE ${LUMO_ANDROID_UTILS} ${LUMO_ANDROID_BASE}
                                             ${LUMO_ANDROID_LOG})
target_link_options(lumo_android INTERFACE LINKER:-rpath,${LUMO_ANDROID_LIBDIR})

# The Android include directory also holds BoringSSL's <openssl/...>. With BoringSSL it may come
# first; with OpenSSL it must come after the system's own directory, or the wrong headers win.
add_library(lumo_crypto INTERFACE)
add_library(lumo::crypto ALIAS lumo_crypto)
if(LUMO_CRYPTO STREQUAL boringssl)
    target_include_directories(lumo_android SYSTEM INTERFACE ${LUMO_ANDROID_INCLUDE})
    if(NOT EXISTS ${LUMO_ANDROID_INCLUDE}/openssl/is_boringssl.h)
        message(FATAL_ERROR "BoringSSL is missing: install android-libboringssl-dev, "
                            "or configure with -DLUMO_CRYPTO=openssl")
    endif()
    target_include_directories(lumo_crypto SYSTEM INTERFACE ${LUMO_ANDROID_INCLUDE})
    target_link_libraries(lumo_crypto INTERFACE ${LUMO_ANDROID_LIBDIR}/libcrypto.so)
    target_link_options(lumo_crypto INTERFACE LINKER:-rpath,${LUMO_ANDROID_LIBDIR})
elseif(LUMO_CRYPTO STREQUAL openssl)
    target_compile_options(lumo_android INTERFACE "SHELL:-idirafter ${LUMO_ANDROID_INCLUDE}")
    target_compile_options(lumo_crypto INTERFACE "SHELL:-idirafter ${LUMO_ANDROID_INCLUDE}")
    # find_package(OpenSSL) could pick BoringSSL's headers up, so the library is named directly.
    find_library(LUMO_OPENSSL_CRYPTO crypto REQUIRED NO_PACKAGE_ROOT_PATH)
    if(LUMO_OPENSSL_CRYPTO MATCHES "/android/")
        message(FATAL_ERROR "OpenSSL 3 is missing: install libssl-dev")
    endif()
    target_link_libraries(lumo_crypto INTERFACE ${LUMO_OPENSSL_CRYPTO})
    # The EC_KEY and RSA interfaces that both libraries share are deprecated in OpenSSL 3.
    target_compile_definitions(lumo_crypto INTERFACE OPENSSL_SUPPRESS_DEPRECATED)
else()
    message(FATAL_ERROR "LUMO_CRYPTO is '${LUMO_CRYPTO}'; it must be boringssl or openssl")
endif()

find_library(LUMO_LIBCBOR cbor REQUIRED)
find_path(LUMO_LIBCBOR_INCLUDE cbor.h REQUIRED)
add_library(lumo_cbor INTERFACE)
add_library(lumo::cbor ALIAS lumo_cbor)
target_link_libraries(lumo_cbor INTERFACE ${LUMO_LIBCBOR})
