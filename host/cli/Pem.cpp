#include "Pem.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>

#include <memory>

#include "Failure.h"

namespace lumo::cli {

namespace {

struct BioFree {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
struct OpensslFree {
    void operator()(void* memory) const { OPENSSL_free(memory); }
};
using BioPtr = std::unique_ptr<BIO, BioFree>;
template <typename T>
using OpensslPtr = std::unique_ptr<T, OpensslFree>;

struct PemBlock {
    std::string label;
    Bytes data;
};

PemBlock firstBlock(const Bytes& file) {
    const BioPtr bio(BIO_new_mem_buf(file.data(), static_cast<int>(file.size())));
    char* label = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long length = 0;
    if (bio == nullptr || PEM_read_bio(bio.get(), &label, &header, &data, &length) != 1) {
        throw Failure(Exit::usage, "the PEM text of the key is damaged");
    }
    const OpensslPtr<char> label_owner(label);
    const OpensslPtr<char> header_owner(header);
    const OpensslPtr<unsigned char> data_owner(data);
    return {label, Bytes(data, data + length)};
}

bool looksLikePem(const Bytes& file) {
    const std::string text(file.begin(), file.end());
    return text.find("-----BEGIN ") != std::string::npos;
}

}  // namespace

std::string toPem(const std::string& label, const Bytes& der) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    const int length = static_cast<int>(der.size());
    if (bio == nullptr || PEM_write_bio(bio.get(), label.c_str(), "", der.data(), length) <= 0) {
        throw Failure(Exit::other, "cannot write PEM: out of memory");
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<size_t>(size));
}

Bytes privateKeyDer(const Bytes& file) {
    if (!looksLikePem(file)) return file;
    PemBlock block = firstBlock(file);
    if (block.label == "PRIVATE KEY") return std::move(block.data);
    if (block.label == "ENCRYPTED PRIVATE KEY") {
        throw Failure(Exit::usage,
                      "the key is encrypted; first run openssl pkcs8 -in KEY -out NEW");
    }
    if (block.label == "PUBLIC KEY") {
        throw Failure(Exit::usage,
                      "the PEM text holds a public key; a keymaster imports private keys alone");
    }
    throw Failure(Exit::usage, "the PEM text is of type " + block.label +
                                   ", not a PKCS#8 PRIVATE KEY; first run openssl pkcs8 -topk8 "
                                   "-nocrypt -in KEY -out NEW");
}

}  // namespace lumo::cli
