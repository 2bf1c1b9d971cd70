// Failures of service calls, and the warnings that responses carry.
#pragma once

#include <string>
#include <utility>
#include <vector>

class nv__ErrorArray;

namespace lexctl {

class ExecThread;
class LocalData;

/// A failure that ends a command: printed as "FAILED: <message>.".
class Exception {
 public:
  explicit Exception(std::string message) : message_(std::move(message)) {}
  virtual ~Exception() = default;
  virtual void Print(ExecThread& thread) const;
  const std::string& message() const { return message_; }

 private:
  std::string message_;
};

/// A transport or protocol failure.
class ToolException : public Exception {
 public:
  using Exception::Exception;
};

/// A SOAP fault from the server.
class SoapException : public Exception {
 public:
  using Items = std::vector<std::pair<std::string, std::string>>;
  SoapException(std::string err, std::string msg, Items items = {});
  void Print(ExecThread& thread) const override;
  const std::string& err() const { return err_; }
  const std::string& msg() const { return msg_; }

 private:
  std::string err_;
  std::string msg_;
  Items items_;
};

/// The name of a SOAP library status or HTTP status ("UNKNOWN" for others),
/// and in *number the number the client reports for it.
const char* StatusName(int status, int* number = nullptr);

/// Throws for a failed call (status not 0): ToolException for transport
/// errors (after rebuilding the connection), SoapException for faults,
/// keeping a session token that a fault carries.
void RaiseOnError(int status, LocalData& data);

/// Prints "Warnings:" and the items, skipping "features", and learns a
/// request group the server started ("reqgroup" items).
void PrintWarnings(ExecThread& thread, LocalData& data, const nv__ErrorArray* errors);
void PrintWarnings(ExecThread& thread, LocalData* data, const SoapException::Items& items);

}  // namespace lexctl
