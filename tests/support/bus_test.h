#pragma once

#include "app/base/debug_log.h"
#include "tests/support/fake_disk_service.h"
#include "tests/support/private_bus.h"

/// A test with a bus of its own in the place of the system's. The log goes to memory.
class BusTest : public QObject {
protected:
    BusTest()
    {
        dbg_init(DBG_TYPE_STRING, 1);
        if (!bus_.startAsSystemBus()) {
            qFatal("no message bus");
        }
    }

    PrivateBus bus_;
};
