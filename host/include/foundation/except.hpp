#pragma once
// Message identifiers and the exception interfaces through which a library
// reports errors and warnings to the host.

#include <cstddef>
#include <exception>
#include <string>
#include <variant>
#include <vector>

#include "ndarray/visibility.hpp"

namespace resource_core {

// A value-initialised argument holds the long 0.
using MsgIDArgument = std::variant<long, std::string, std::u16string>;

// Catalog plus key, with optional message arguments.  Each error or warning
// of a library is a class derived from this, built by its default
// constructor.
class QZHOST_API BaseMsgID {
 public:
  // n value-initialised arguments.
  BaseMsgID(std::string catalog, std::string key, std::size_t n);

  std::vector<MsgIDArgument> const& arguments() const { return arguments_; }
  std::string const& catalog() const { return catalog_; }
  std::string const& key() const { return key_; }

 private:
  // Declaration order fixes destruction order: key, catalog, then arguments.
  std::vector<MsgIDArgument> arguments_;
  std::string catalog_;
  std::string key_;
};

}  // namespace resource_core

namespace foundation::core::except {

// The virtual functions are declared in the order of the slots of every
// exception the host handles; do not reorder them.
class QZHOST_API IException {
 public:
  virtual IException* clone() const = 0;
  [[noreturn]] virtual void rethrow() const = 0;
  virtual ~IException();
  // "IDENTIFIER: message text" for a message-ID exception.
  virtual char const* what() const noexcept;

 protected:
  IException() = default;
  IException(IException const&) = default;
  IException& operator=(IException const&) = default;

 private:
  mutable std::string what_;
};

class QZHOST_API IUserException : public IException {
 public:
  virtual std::string convert_str(std::u16string const& s) const;
  virtual std::u16string convert_str(std::string const& s) const;
  // The message text shown to the user.
  virtual std::u16string ToUstringImpl() const;
};

class QZHOST_API IMsgIDException : public IUserException {
 public:
  // The identifier the host reports: catalog and key joined by a colon.
  static std::string get_error_id(resource_core::BaseMsgID const& id);

  virtual std::string GetID() const = 0;
  // The catalog text for the held message ID.
  virtual std::u16string GetUnicodeMessageTxt() const;
  virtual resource_core::BaseMsgID const& GetBaseMsgIDObj() const = 0;
};

}  // namespace foundation::core::except

namespace matrix::detail {
// Raises the host's error for a library exception.  On the host this leaves
// the caller through the host's error path and does not return.
QZHOST_API void do_legacy_nd_error(foundation::core::except::IUserException const& e);
}  // namespace matrix::detail

// Issues a warning and returns; the built-in carries on.
QZHOST_API void ndWarningMsgId(resource_core::BaseMsgID const& id);
