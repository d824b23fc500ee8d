/* Pointer and length that travel together: UsefulBuf for memory that may be written, UsefulBufC
 * for memory that is only read. Neither owns what it points to. A null pointer is "no buffer",
 * which differs from an empty one. */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct UsefulBuf {
    void* ptr;
    size_t len; /* bytes */
} UsefulBuf;

typedef struct UsefulBufC {
    const void* ptr;
    size_t len; /* bytes */
} UsefulBufC;

static inline UsefulBuf UsefulBuf_Make(void* ptr, size_t len) {
    UsefulBuf result;
    result.ptr = ptr;
    result.len = len;
    return result;
}

static inline UsefulBufC UsefulBufC_Make(const void* ptr, size_t len) {
    UsefulBufC result;
    result.ptr = ptr;
    result.len = len;
    return result;
}

/* Expressions, not objects: compound literals would be refused by C++ in its pedantic mode. */
#define NULLUsefulBuf UsefulBuf_Make(NULL, 0)
#define NULLUsefulBufC UsefulBufC_Make(NULL, 0)

/* The literal without its terminator; the bytes of an array. */
#define SZLiteralToUsefulBufC(sz) UsefulBufC_Make("" sz, sizeof(sz) - 1)
#define ByteArrayLiteralToUsefulBufC(array) UsefulBufC_Make((array), sizeof(array))

#define MakeUsefulBufOnStack(name, size) \
    uint8_t name##_bytes[(size)];        \
    UsefulBuf name = {name##_bytes, sizeof(name##_bytes)}

static inline UsefulBufC SZToUsefulBufC(const char* sz) {
    return UsefulBufC_Make(sz, strlen(sz));
}

static inline UsefulBufC UsefulBuf_Const(UsefulBuf buf) {
    return UsefulBufC_Make(buf.ptr, buf.len);
}
#define UsefulBufConst UsefulBuf_Const

static inline UsefulBuf UsefulBufC_Unconst(UsefulBufC buf) {
#ifdef __cplusplus
    return UsefulBuf_Make(const_cast<void*>(buf.ptr), buf.len);
#else
    return UsefulBuf_Make((void*)(uintptr_t)buf.ptr, buf.len);
#endif
}

/* Macros, because they take either kind. */
#define UsefulBuf_IsNULL(buf) ((buf).ptr == NULL)
#define UsefulBuf_IsEmpty(buf) ((buf).len == 0)
#define UsefulBuf_IsNULLOrEmpty(buf) (UsefulBuf_IsNULL(buf) || UsefulBuf_IsEmpty(buf))

/* Copies all of `source` to the start of `destination` and sets its length to what was copied.
 * Returns 1, and copies nothing, if it does not fit; else 0. */
static inline int UsefulBuf_Copy(UsefulBuf* destination, const UsefulBufC source) {
    if (source.len > destination->len) {
        return 1;
    }
    if (source.len > 0) {
        memmove(destination->ptr, source.ptr, source.len);
    }
    destination->len = source.len;
    return 0;
}

/* Orders by length first (the shorter is less), then as memcmp does. */
static inline int UsefulBuf_Compare(const UsefulBufC a, const UsefulBufC b) {
    if (a.len != b.len) {
        return a.len < b.len ? -1 : 1;
    }
    return a.len == 0 ? 0 : memcmp(a.ptr, b.ptr, a.len);
}

#ifdef __cplusplus
}
#endif
