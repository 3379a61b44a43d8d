#pragma once

#include <memory>

#include "sysnotify/nstring.h"

namespace KIVO::NEXNotify {

struct FreeNotifyString {
    void operator()(NString* record) const { KIVONotifyStringFree(record); }
};

/// A notification string record, released at the end of its life; null when memory was short.
using NotifyString = std::unique_ptr<NString, FreeNotifyString>;

}  // namespace KIVO::NEXNotify
