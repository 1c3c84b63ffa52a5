// loose_verdict.hpp - how a script's loosely written verdict is read.
#pragma once

#include "module/names.hpp"

namespace ats {

// True for what begins with one of T, Y, P, O in either case ("true", "Yes", "pass", "OK"), as text or bytes;
// any other object is true when it is unequal to 0.
bool loosely_true(nb::handle value);

}  // namespace ats
