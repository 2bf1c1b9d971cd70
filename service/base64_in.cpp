#include "base64_in.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint8_t kBlank = 64;
constexpr uint8_t kOther = 65;  // '=', '<', '&' and anything invalid

struct Table {
  uint8_t value[256];
  constexpr Table() : value() {
    for (int c = 0; c < 256; ++c) value[c] = kOther;
    for (int c = 0; c <= 32; ++c) value[c] = kBlank;
    const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int i = 0; i < 64; ++i) value[static_cast<uint8_t>(alphabet[i])] = static_cast<uint8_t>(i);
  }
};
constexpr Table kTable;

// A value that grows past this size in a reply longer than this moves, once,
// into a buffer of context memory sized from the Content-Length, so that a
// large value is neither copied again nor grown; its untouched tail costs
// address space, not memory. Smaller values never take such a buffer: a reply
// of many small values (100,000 attachments, say) would otherwise reserve the
// whole reply's size once per value.
constexpr size_t kDirectFrom = 1 << 20;

void (*g_advise_large)(void*, size_t) = nullptr;

// Where the decoded bytes go: a malloc'd buffer that grows by realloc, and
// for a large value the context memory that the reply's length bounds.
class Output {
 public:
  explicit Output(struct soap* soap) : soap_(soap) {}
  ~Output() {
    if (!direct_) free(data_);
  }
  bool Reserve(size_t more) {
    if (size_ + more <= capacity_) return true;
    if (!moved_ && size_ + more > kDirectFrom && soap_->length > kDirectFrom && soap_->length < (1ULL << 40)) {
      moved_ = true;
      size_t bound = static_cast<size_t>(soap_->length) / 4 * 3 + 4;
      auto* direct = bound - 1 >= size_ + more ? static_cast<unsigned char*>(soap_malloc(soap_, bound)) : nullptr;
      if (direct) {
        if (g_advise_large) g_advise_large(direct, bound);
        if (size_) memcpy(direct, data_, size_);
        free(data_);
        data_ = direct;
        capacity_ = bound - 1;  // room for the closing zero
        direct_ = true;
        return true;
      }
    }
    size_t want = capacity_ ? capacity_ * 2 : 4096;
    while (want < size_ + more) want *= 2;
    unsigned char* grown;
    if (direct_) {
      // The length was no bound after all (compressed, say).
      grown = static_cast<unsigned char*>(malloc(want));
      if (grown) memcpy(grown, data_, size_);
    } else {
      grown = static_cast<unsigned char*>(realloc(data_, want));
    }
    if (!grown) return false;
    data_ = grown;
    capacity_ = want;
    direct_ = false;
    return true;
  }
  unsigned char* End() { return data_ + size_; }
  void SetEnd(unsigned char* end) { size_ = static_cast<size_t>(end - data_); }
  size_t Size() const { return size_; }
  // The bytes in context memory, zero-terminated.
  unsigned char* Result() {
    if (direct_) {
      data_[size_] = 0;
      return data_;
    }
    auto* result = static_cast<unsigned char*>(soap_malloc(soap_, size_ + 1));
    if (!result) return nullptr;
    if (size_) memcpy(result, data_, size_);
    result[size_] = 0;
    return result;
  }

 private:
  struct soap* soap_;
  unsigned char* data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
  bool direct_ = false;
  bool moved_ = false;  // the one move into context memory was tried
};

}  // namespace

void LexSetLargeBufferAdvice(void (*advise)(void* data, size_t size)) { g_advise_large = advise; }

unsigned char* LexGetBase64(struct soap* soap, int* size) {
  Output out(soap);
  uint32_t quad = 0;  // bits of the sextets read so far
  int have = 0;       // how many, 0 to 3
  for (;;) {
    if (!soap->ahead && soap->bufidx < soap->buflen) {
      const auto* start = reinterpret_cast<const unsigned char*>(soap->buf);
      const auto* p = start + soap->bufidx;
      const auto* end = start + soap->buflen;
      if (!out.Reserve(static_cast<size_t>(end - p) / 4 * 3 + 3)) return soap->error = SOAP_EOM, nullptr;
      unsigned char* o = out.End();
      for (;;) {
        // Whole groups of four, the common case.
        while (have == 0 && end - p >= 4) {
          uint32_t a = kTable.value[p[0]], b = kTable.value[p[1]];
          uint32_t c = kTable.value[p[2]], d = kTable.value[p[3]];
          if ((a | b | c | d) >= 64) break;
          uint32_t bits = a << 18 | b << 12 | c << 6 | d;
          o[0] = static_cast<unsigned char>(bits >> 16);
          o[1] = static_cast<unsigned char>(bits >> 8);
          o[2] = static_cast<unsigned char>(bits);
          o += 3;
          p += 4;
        }
        if (p == end) break;
        uint8_t v = kTable.value[*p];
        if (v == kOther) break;
        ++p;
        if (v == kBlank) continue;
        quad = quad << 6 | v;
        if (++have == 4) {
          o[0] = static_cast<unsigned char>(quad >> 16);
          o[1] = static_cast<unsigned char>(quad >> 8);
          o[2] = static_cast<unsigned char>(quad);
          o += 3;
          quad = 0;
          have = 0;
        }
      }
      out.SetEnd(o);
      soap->bufidx = static_cast<size_t>(p - start);
    }
    // One character the library's way: a refill, an entity, CDATA, a
    // comment, the closing tag, '=' or an invalid character.
    soap_wchar c = soap_get(soap);
    if (c < -6) c &= 0x7FFFFFFF;  // a character the reader marked, not a markup token
    if (c == '=' || c < 0) {
      if (!out.Reserve(2)) return soap->error = SOAP_EOM, nullptr;
      unsigned char* o = out.End();
      if (have == 2) {
        *o++ = static_cast<unsigned char>(quad >> 4);
      } else if (have == 3) {
        *o++ = static_cast<unsigned char>(quad >> 10);
        *o++ = static_cast<unsigned char>(quad >> 2);
      }
      out.SetEnd(o);
      if (c >= 0) {
        // Padding, then nothing of interest up to the tag.
        do c = soap_get(soap);
        while (c != EOF && c != -2 && c != -3);
      }
      soap_unget(soap, c);
      if (out.Size() > static_cast<size_t>(INT32_MAX)) return soap->error = SOAP_EOM, nullptr;
      unsigned char* result = out.Result();
      if (result && size) *size = static_cast<int>(out.Size());
      return result;
    }
    uint8_t v = c < 256 ? kTable.value[c] : kOther;
    if (v == kOther) return soap->error = SOAP_TYPE, nullptr;
    if (v == kBlank) continue;
    quad = quad << 6 | v;
    if (++have == 4) {
      if (!out.Reserve(3)) return soap->error = SOAP_EOM, nullptr;
      unsigned char* o = out.End();
      o[0] = static_cast<unsigned char>(quad >> 16);
      o[1] = static_cast<unsigned char>(quad >> 8);
      o[2] = static_cast<unsigned char>(quad);
      out.SetEnd(o + 3);
      quad = 0;
      have = 0;
    }
  }
}
