// SOAP values built by hand (replies in shapes lexsim never sends, requests
// to look into), all in one context that ends with the test, and a thread
// whose output is captured.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "soapH.h"

namespace lexctl::testing {

class Reply : public ::testing::Test {
 protected:
  ~Reply() override {
    soap_destroy(soap_);
    soap_end(soap_);
    soap_free(soap_);
  }
  std::string* S(const char* text) {
    if (!text) return nullptr;
    std::string* s = soap_new_std__string(soap_);
    *s = text;
    return s;
  }
  template <typename T>
  T* N(T value) {
    T* p = static_cast<T*>(soap_malloc(soap_, sizeof(T)));
    *p = value;
    return p;
  }

  struct soap* soap_ = soap_new();
  ExecThread thread_{"_main_", true};
  Capture out_{thread_};
};

}  // namespace lexctl::testing
