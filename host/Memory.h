#pragma once

namespace KIVO::Host {

/// Lets the process keep the memory that a request frees for the next one, which needs much the same: given
/// back to the system it costs a page fault for every page.
void KeepFreedMemory();

}  // namespace KIVO::Host
