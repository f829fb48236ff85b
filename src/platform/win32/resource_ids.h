#pragma once
// Resource numbers of the Windows program's icons and pictures, shared by the
// resource script (res/kestrine.rc) and the native window.
#define IDI_KESTRINE 1
#define IDI_RELEASE 101
#define IDI_QUIT 102
#define IDI_CENTRE 103
#define IDI_RELEASING 104
#define IDI_UNLOADING 105
#define IDB_RELEASED 201
