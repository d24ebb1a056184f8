#pragma once
// How a built-in raises: every failure is a message ID handed to the host's
// error path.  Gateways catch nothing.

#include <exception>
#include <string>
#include <utility>

#include "foundation/except.hpp"

namespace foundation::core::except {

template <class ID, class Base, class Extra>
class Exception;

// The library's exception for one message-ID class.  The identifier text is
// formed once, at construction.
template <class ID>
class Exception<ID, std::exception, void> final : public IMsgIDException, public std::exception {
 public:
  explicit Exception(ID id) : id_(std::move(id)), errorId_(IMsgIDException::get_error_id(id_)) {}
  Exception(Exception const&) = default;

  IException* clone() const override { return new Exception(*this); }
  [[noreturn]] void rethrow() const override { throw *this; }
  ~Exception() override = default;
  char const* what() const noexcept override { return IException::what(); }
  std::string GetID() const override { return errorId_; }
  resource_core::BaseMsgID const& GetBaseMsgIDObj() const override { return id_; }

 private:
  ID id_;
  std::string errorId_;
};

}  // namespace foundation::core::except

// Raises the error for id.  Never returns: if the host's error call comes
// back, the wrapper itself is thrown, so control still leaves the gateway.
template <class ID>
[[noreturn]] void ndErrMsgId(ID const& id) {
  foundation::core::except::Exception<ID, std::exception, void> error{ID(id)};
  matrix::detail::do_legacy_nd_error(error);
  throw error;
}
