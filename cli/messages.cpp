#include "messages.hpp"

#include <iostream>

namespace qzcli {
namespace {

thread_local std::ostream* tReport = nullptr;
thread_local std::ostream* tMessages = nullptr;

}  // namespace

std::ostream& messages() { return tMessages ? *tMessages : std::cerr; }
std::ostream& report() { return tReport ? *tReport : std::cout; }

Redirect::Redirect(std::ostream& report, std::ostream& messages) : report_(tReport), messages_(tMessages) {
  tReport = &report;
  tMessages = &messages;
}

Redirect::~Redirect() {
  tReport = report_;
  tMessages = messages_;
}

}  // namespace qzcli
