// Message identifiers, the exception interfaces, the host's error and
// warning paths.

#include <atomic>
#include <cstdio>

#include "qzhost/runtime.hpp"
#include "utf.hpp"

namespace resource_core {

BaseMsgID::BaseMsgID(std::string catalog, std::string key, std::size_t n)
    : arguments_(n), catalog_(std::move(catalog)), key_(std::move(key)) {}

}  // namespace resource_core

namespace foundation::core::except {

IException::~IException() = default;

char const* IException::what() const noexcept {
  if (what_.empty()) {
    try {
      if (auto const* m = dynamic_cast<IMsgIDException const*>(this))
        what_ = m->GetID() + ": " + qzhost::detail::toUtf8(m->GetUnicodeMessageTxt());
      else
        what_ = "unidentified error";
    } catch (...) {
      return "unidentified error";
    }
  }
  return what_.c_str();
}

std::string IUserException::convert_str(std::u16string const& s) const { return qzhost::detail::toUtf8(s); }

std::u16string IUserException::convert_str(std::string const& s) const { return qzhost::detail::toUtf16(s); }

std::u16string IUserException::ToUstringImpl() const {
  if (auto const* m = dynamic_cast<IMsgIDException const*>(this)) return m->GetUnicodeMessageTxt();
  return qzhost::detail::toUtf16(what());
}

std::string IMsgIDException::get_error_id(resource_core::BaseMsgID const& id) {
  return id.catalog() + ":" + id.key();
}

std::u16string IMsgIDException::GetUnicodeMessageTxt() const {
  auto const& id = GetBaseMsgIDObj();
  std::string text = qzhost::messageText(id.catalog(), id.key());
  if (text.empty()) text = "No message text is registered for " + get_error_id(id) + ".";
  return qzhost::detail::toUtf16(text);
}

}  // namespace foundation::core::except

namespace qzhost {
namespace {
thread_local bool tLegacyErrorReturns = false;
thread_local std::vector<Warning> tWarnings;
std::atomic<bool> gWarningEcho{true};
}  // namespace

HostError::HostError(std::string identifier, std::string message)
    : std::runtime_error(identifier + ": " + message),
      identifier_(std::move(identifier)),
      message_(std::move(message)) {}

HostError::~HostError() = default;

void raise(std::string const& key) { throw HostError("qzhost:" + key, messageText("qzhost", key)); }

void setLegacyErrorReturns(bool on) { tLegacyErrorReturns = on; }

std::vector<Warning> takeWarnings() {
  std::vector<Warning> out;
  out.swap(tWarnings);
  return out;
}

void setWarningEcho(bool on) { gWarningEcho.store(on); }

}  // namespace qzhost

namespace matrix::detail {

void do_legacy_nd_error(foundation::core::except::IUserException const& e) {
  if (qzhost::tLegacyErrorReturns) return;
  std::string id = "qzhost:unidentified";
  if (auto const* m = dynamic_cast<foundation::core::except::IMsgIDException const*>(&e)) id = m->GetID();
  throw qzhost::HostError(id, e.convert_str(e.ToUstringImpl()));
}

}  // namespace matrix::detail

void ndWarningMsgId(resource_core::BaseMsgID const& id) {
  std::string text = qzhost::messageText(id.catalog(), id.key());
  qzhost::tWarnings.push_back({foundation::core::except::IMsgIDException::get_error_id(id), text});
  if (qzhost::gWarningEcho.load()) std::fprintf(stderr, "Warning: %s\n", text.c_str());
}
