// Sleeping that signals do not shorten.
#pragma once

namespace psia {

/// Sleeps for the whole time, also when signals arrive in between.
void sleep_milliseconds(int milliseconds);

}  // namespace psia
