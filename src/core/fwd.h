#pragma once
// What most logic headers only name: the program object, its main window and
// the system's services.
namespace app {
struct Program;
class frmMain;
} // namespace app
namespace platform {
struct Services;
} // namespace platform
