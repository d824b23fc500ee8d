#include "KeyWrapper.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <map>

#include "Failure.h"
#include "secureapp/crypto/AesGcm.h"
#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/Der.h"

namespace lumo::cli {

namespace {

namespace der = secureapp::der;

constexpr size_t kTransportKeyBytes = 32;
constexpr size_t kNonceBytes = 12;
constexpr size_t kTagBytes = 16;
constexpr uint32_t kTagNumberMask = 0x0FFFFFFF;

constexpr char kVersion[] = "version";
constexpr char kTransportKey[] = "encrypted-transport-key";
constexpr char kTransportKeyLength[] = "transport-key-length";
constexpr char kNonce[] = "initialization-vector";
constexpr char kFormat[] = "key-format";
constexpr char kDescription[] = "key-description";
constexpr char kKey[] = "encrypted-key";
constexpr char kTag[] = "tag";
constexpr char kEncoding[] = "encoding";

void requireCrypto(bool done, const char* what) {
    if (!done) throw Failure(Exit::other, std::string("libcrypto could not ") + what);
}

Bytes randomBytes(size_t count) {
    Bytes bytes(count);
    requireCrypto(RAND_bytes(bytes.data(), secureapp::CryptoLength{bytes}) == 1,
                  "draw random bytes");
    return bytes;
}

secureapp::CryptoPtr<EVP_PKEY> publicKeyIn(const Bytes& file) {
    const uint8_t* at = file.data();
    EVP_PKEY* key = d2i_PUBKEY(nullptr, &at, static_cast<long>(file.size()));
    if (key == nullptr) {
        BIO* const text = BIO_new_mem_buf(file.data(), static_cast<int>(file.size()));
        requireCrypto(text != nullptr, "read the public key");
        key = PEM_read_bio_PUBKEY(text, nullptr, nullptr, nullptr);
        BIO_free(text);
    }
    secureapp::CryptoPtr<EVP_PKEY> owned(key);
    if (key == nullptr || EVP_PKEY_id(key) != EVP_PKEY_RSA) {
        throw Failure(Exit::usage,
                      "--to: the file has no RSA public key in PEM or DER; lumokm export writes "
                      "that of a wrapping key");
    }
    return owned;
}

// Of the kinds that keymasters import.
bool isKeyPair(const secureapp::CryptoPtr<EVP_PKEY>& key) {
    return key != nullptr &&
           (EVP_PKEY_id(key.get()) == EVP_PKEY_RSA || EVP_PKEY_id(key.get()) == EVP_PKEY_EC);
}

// OAEP with SHA-256, MGF1 with SHA-1, as keymasters decrypt it.
Bytes encryptFor(EVP_PKEY* key, const Bytes& plaintext) {
    const secureapp::CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    Bytes ciphertext(static_cast<size_t>(EVP_PKEY_size(key)));
    size_t size = ciphertext.size();
    EVP_PKEY_CTX* const c = context.get();
    requireCrypto(
        c != nullptr && EVP_PKEY_encrypt_init(c) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(c, RSA_PKCS1_OAEP_PADDING) == 1 &&
            EVP_PKEY_CTX_set_rsa_oaep_md(c, EVP_sha256()) == 1 &&
            EVP_PKEY_CTX_set_rsa_mgf1_md(c, EVP_sha1()) == 1 &&
            EVP_PKEY_encrypt(c, ciphertext.data(), &size, plaintext.data(), plaintext.size()) == 1,
        "encrypt the transport key");
    ciphertext.resize(size);
    return ciphertext;
}

Bytes valueOf(const KeyParameter& parameter) {
    switch (typeOf(tagOf(parameter))) {
        case TagType::BOOL:
            return der::item(der::kNull, {});
        case TagType::ULONG:
        case TagType::ULONG_REP:
        case TagType::DATE:
            return der::integer(parameter.f.longInteger);
        case TagType::BIGNUM:
        case TagType::BYTES:
            return der::octetString(Bytes(parameter.blob));
        default:
            return der::integer(parameter.f.integer);
    }
}

// A SEQUENCE of elements under EXPLICIT context tags, which are the tags' numbers, in rising order;
// repeatable tags are a SET OF their values.
Bytes authorizationList(const std::vector<KeyParameter>& parameters) {
    struct Field {
        bool repeatable = false;
        std::vector<Bytes> values;
    };
    std::map<uint32_t, Field> fields;
    for (const KeyParameter& parameter : parameters) {
        const Tag tag = tagOf(parameter);
        if (typeOf(tag) == TagType::BOOL && !parameter.f.boolValue) continue;
        Field& field = fields[static_cast<uint32_t>(tag) & kTagNumberMask];
        field.repeatable = isRepeatable(tag);
        field.values.push_back(valueOf(parameter));
    }
    Bytes contents;
    for (const auto& [number, field] : fields) {
        if (!field.repeatable && field.values.size() > 1) {
            throw Failure(Exit::usage,
                          "the tag of number " + std::to_string(number) + " cannot be given twice");
        }
        const Bytes value = field.repeatable ? der::setOf(field.values) : field.values.front();
        const Bytes element = der::item(der::context(number), value);
        contents.insert(contents.end(), element.begin(), element.end());
    }
    return der::item(der::kSequence, contents);
}

Bytes description(km::V4_0::KeyFormat format, const std::vector<KeyParameter>& parameters) {
    return der::sequence(
        {der::integer(static_cast<uint64_t>(format)), authorizationList(parameters)});
}

}  // namespace

const std::vector<WrongField>& wrongFields() {
    static const std::vector<WrongField> fields = {
        {kVersion, "1 in place of 0", "INVALID_ARGUMENT"},
        {kTransportKey, "one bit differs", "UNKNOWN_ERROR"},
        {kTransportKeyLength, "a transport key of 31 bytes", "INVALID_ARGUMENT"},
        {kNonce, "11 bytes", "INVALID_ARGUMENT"},
        {kFormat, "X.509, of no private key", "UNSUPPORTED_KEY_FORMAT"},
        {kDescription, "not the authenticated one", "VERIFICATION_FAILED"},
        {kKey, "one bit differs", "VERIFICATION_FAILED"},
        {kTag, "one bit differs", "VERIFICATION_FAILED"},
        {kEncoding, "the last byte is missing", "INVALID_ARGUMENT"},
    };
    return fields;
}

void requirePrivateKey(const Bytes& pkcs8) {
    const uint8_t* at = pkcs8.data();
    const secureapp::CryptoPtr<PKCS8_PRIV_KEY_INFO> info(
        d2i_PKCS8_PRIV_KEY_INFO(nullptr, &at, static_cast<long>(pkcs8.size())));
    const bool whole = info != nullptr && at == pkcs8.data() + pkcs8.size();
    if (whole && isKeyPair(secureapp::CryptoPtr<EVP_PKEY>(EVP_PKCS82PKEY(info.get())))) return;
    throw Failure(Exit::usage,
                  "the input, " + std::to_string(pkcs8.size()) +
                      " bytes of it, is no RSA or EC key in PKCS#8; openssl pkcs8 -topk8 -nocrypt "
                      "-in KEY -out NEW makes one, and --format raw takes any bytes");
}

Bytes wrapKey(const KeyToWrap& key, const std::string& wrong) {
    const secureapp::CryptoPtr<EVP_PKEY> wrapping_key = publicKeyIn(key.wrapping_key);
    const Bytes transport_key = randomBytes(kTransportKeyBytes);
    Bytes masked = transport_key;
    for (size_t i = 0; i < masked.size(); ++i) masked[i] ^= key.masking_key.at(i);
    if (wrong == kTransportKeyLength) masked.pop_back();
    Bytes encrypted_transport_key = encryptFor(wrapping_key.get(), masked);
    if (wrong == kTransportKey) encrypted_transport_key.back() ^= 1;

    Bytes nonce = randomBytes(kNonceBytes);
    const km::V4_0::KeyFormat format = wrong == kFormat ? km::V4_0::KeyFormat::X509 : key.format;
    Bytes key_description = description(format, key.parameters);
    Bytes sealed = secureapp::aesGcmSeal(transport_key, nonce, key_description, key.material);
    if (wrong == kDescription) {
        std::vector<KeyParameter> others = key.parameters;
        KeyParameter creation{};
        creation.tag = km::V4_0::Tag::CREATION_DATETIME;
        others.push_back(creation);
        key_description = description(format, others);
    }
    if (wrong == kNonce) nonce.pop_back();
    if (wrong == kKey) sealed.front() ^= 1;
    if (wrong == kTag) sealed.back() ^= 1;

    const auto tag = sealed.end() - kTagBytes;
    Bytes wrapped = der::sequence({
        der::integer(wrong == kVersion ? 1 : 0),
        der::octetString(encrypted_transport_key),
        der::octetString(nonce),
        key_description,
        der::octetString(Bytes(sealed.begin(), tag)),
        der::octetString(Bytes(tag, sealed.end())),
    });
    if (wrong == kEncoding) wrapped.pop_back();
    return wrapped;
}

}  // namespace lumo::cli
