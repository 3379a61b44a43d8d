#pragma once

namespace KIVO::Test {

/// How many calls of `operator new` still succeed on this thread; negative for no limit.
extern thread_local long allocationsLeft;

}  // namespace KIVO::Test
