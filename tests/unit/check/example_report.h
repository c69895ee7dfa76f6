#pragma once
// What a run may have found.

#include "check/report_text.h"

namespace kelt::tests {

inline check::Report exampleReport() {
  using check::State;
  return {{{"config.file", {}, State::kOk, "Fine.", {}},
           {"config.product", "X", State::kWarning, "Odd.", "Mend it."},
           {"key.server", {}, State::kProblem, "A|B.", "Get it."}},
          {{"mode", {"managed"}}, {"servers", {"a|b"}}}};
}

}  // namespace kelt::tests
