// judgement.hpp - how a value and its limits, or a script's own result, become a verdict.
#pragma once

#include "records/assertion.hpp"

namespace ats {

// A text is OK when it reads "ok" or "pass" in any letter case; anything else goes by its truth.
Verdict verdict_of_result(nb::handle result);

// Both bounds are inclusive; None or null means: no limit.  Objects compare by their own ordering, so limits
// of a foreign type raise TypeError.
Verdict judge(PyObject* value, PyObject* lower, PyObject* upper);

}  // namespace ats
