// assertion_queue.hpp - the queue that carries assertions from the test thread to the panel.
#pragma once

#include "module/names.hpp"

namespace ats {

nb::object new_assertion_queue();

// `queue.put(item)`, overrides honoured.
void put(nb::handle queue, nb::handle item);

// Whether the queue is our own kind, untouched, and nobody waits or works on it; and the put that may follow
// before any Python code runs.
bool takes_directly(nb::handle queue);
void put_directly(nb::handle queue, nb::handle item);

}  // namespace ats
