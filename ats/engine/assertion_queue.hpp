// assertion_queue.hpp - the queue that carries assertions from the test thread to the panel.
#pragma once

#include "module/names.hpp"

namespace ats {

nb::object new_assertion_queue();

// `queue.put(item)`; direct when `queue` is our own kind and nobody waits or works on it.
void put(nb::handle queue, nb::handle item);

}  // namespace ats
