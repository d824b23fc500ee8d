/* The pointers with a length that QCBOR's older call interface passes. */
#pragma once

#include <stddef.h>
#include <stdint.h>

typedef struct {
    void* ptr;
    size_t len;
} UsefulBuf;

typedef struct {
    const void* ptr;
    size_t len;
} UsefulBufC;
