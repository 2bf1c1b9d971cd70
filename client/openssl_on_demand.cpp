// OpenSSL is loaded on the first call into it, from Debian's shared
// libraries: linked into the program, its tables cost every start about a
// hundred pages of relocations, even for a script that makes no request.
// Each function below is a one-jump stub through a pointer that first points
// at a loader and then at the library's function.
#include <openssl/dh.h>
#include <openssl/err.h>
#include <openssl/hmac.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>

#include "shell/platform.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#define LEXCTL_OPENSSL_FUNCTIONS(X) \
  X(ASN1_STRING_get0_data) X(ASN1_STRING_to_UTF8) X(BIO_free) X(BIO_new_file) X(BIO_new_socket) X(BIO_read) \
  X(BIO_write) X(CRYPTO_free) X(DH_check) X(DH_free) X(DH_generate_parameters_ex) X(DH_new) \
  X(ERR_clear_error) X(ERR_error_string) X(ERR_error_string_n) X(ERR_get_error) X(ERR_peek_error) \
  X(ERR_peek_last_error) X(ERR_reason_error_string) X(EVP_sha1) X(GENERAL_NAME_free) X(HMAC) \
  X(OPENSSL_sk_num) X(OPENSSL_sk_pop_free) X(OPENSSL_sk_value) X(OpenSSL_version_num) \
  X(PEM_read_bio_DHparams) X(RAND_bytes) X(RAND_load_file) X(RAND_seed) X(RAND_status) X(SSL_CTX_ctrl) \
  X(SSL_CTX_free) X(SSL_CTX_get_cert_store) X(SSL_CTX_load_verify_locations) X(SSL_CTX_new) \
  X(SSL_CTX_set_client_CA_list) X(SSL_CTX_set_default_passwd_cb) X(SSL_CTX_set_default_passwd_cb_userdata) \
  X(SSL_CTX_set_default_verify_paths) X(SSL_CTX_set_options) X(SSL_CTX_set_session_id_context) \
  X(SSL_CTX_set_verify) X(SSL_CTX_set_verify_depth) X(SSL_CTX_use_PrivateKey_file) \
  X(SSL_CTX_use_certificate_chain_file) X(SSL_SESSION_free) X(SSL_accept) X(SSL_clear) X(SSL_connect) \
  X(SSL_ctrl) X(SSL_free) X(SSL_get1_peer_certificate) X(SSL_get1_session) X(SSL_get_error) \
  X(SSL_get_verify_result) X(SSL_is_init_finished) X(SSL_load_client_CA_file) X(SSL_new) X(SSL_peek) \
  X(SSL_read) X(SSL_set_bio) X(SSL_set_session) X(SSL_shutdown) X(SSL_want) X(SSL_write) X(TLS_method) \
  X(X509V3_conf_free) X(X509_LOOKUP_file) X(X509_NAME_ENTRY_get_data) X(X509_NAME_get_entry) \
  X(X509_NAME_get_index_by_NID) X(X509_STORE_CTX_get_error) X(X509_STORE_CTX_set_error) \
  X(X509_STORE_add_lookup) X(X509_STORE_set_flags) X(X509_check_host) X(X509_check_ip_asc) X(X509_free) \
  X(X509_get_ext_d2i) X(X509_get_subject_name) X(X509_load_crl_file) X(X509_verify_cert_error_string) \
  X(i2v_GENERAL_NAMES)

namespace lexctl {
namespace {

void* OpenSslSymbol(const char* name) {
  // libssl's handle also finds libcrypto's functions, which it depends on.
  static void* const library = OpenLibrary({"libssl.so.3"});
  void* symbol = library ? LibrarySymbol(library, name) : nullptr;
  if (!symbol) {
    fprintf(stderr, "lexctl3: cannot load %s from libssl.so.3\n", name);
    abort();
  }
  return symbol;
}

}  // namespace
}  // namespace lexctl

#if defined(__x86_64__)
#define LEXCTL_JUMP(name) #name ":\n  jmp *lexctl_openssl_" #name "(%rip)\n"
#elif defined(__aarch64__)
#define LEXCTL_JUMP(name) \
  #name ":\n  adrp x16, lexctl_openssl_" #name "\n  ldr x16, [x16, :lo12:lexctl_openssl_" #name "]\n  br x16\n"
#else
#error "no call stub for this processor: build with -DLEXCTL_STATIC_DEPS=OFF"
#endif

#define LEXCTL_ON_DEMAND(name)                                                                    \
  extern "C" __attribute__((visibility("hidden"))) decltype(&::name) lexctl_openssl_##name;       \
  decltype(&::name) lexctl_openssl_##name = [](auto... args) {                                    \
    auto function = reinterpret_cast<decltype(&::name)>(lexctl::OpenSslSymbol(#name));            \
    __atomic_store_n(&lexctl_openssl_##name, function, __ATOMIC_RELEASE);                         \
    return function(args...);                                                                     \
  };                                                                                              \
  asm(".pushsection .text\n.globl " #name "\n.type " #name ", @function\n" LEXCTL_JUMP(name) ".size " #name \
      ", .-" #name "\n.popsection\n");

LEXCTL_OPENSSL_FUNCTIONS(LEXCTL_ON_DEMAND)
