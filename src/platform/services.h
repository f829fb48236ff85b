#pragma once
// Every service of the platform boundary, as one bundle that a backend fills.
#include "platform/application.h"
#include "platform/devices.h"
#include "platform/management.h"
#include "platform/native.h"
#include "platform/profile.h"
#include "platform/scripting.h"
#include "platform/shell.h"
#include "platform/storage.h"
#include "platform/volumes.h"
#include "platform/window_system.h"

namespace platform {

struct Services {
    Application& app;
    Volumes& volumes;
    Profile& profile;
    WindowSystem& windows;
    Shell& shell;
    FileSystemObject& fso;
    Storage& storage;
    Devices& devices;
    Management& management;
    Native& native;
};

} // namespace platform
