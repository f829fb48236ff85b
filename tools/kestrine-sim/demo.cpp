#include "kestrine-sim/scenario.h"

namespace sim {

std::string_view DemoScenario() {
    return R"json({
  "machine": {
    "program": {"folder": "C:\\Program Files\\Kestrine", "commandLine": "", "decimalSeparator": "."},
    "drives": [
      {"root": "C:\\", "type": 3, "label": "System", "fileSystem": "NTFS",
       "totalBytes": 256060514304, "freeBytes": 98765432109},
      {"root": "D:\\", "type": 5, "label": "", "fileSystem": "", "ready": false},
      {"root": "E:\\", "type": 2, "label": "STICK", "fileSystem": "FAT32",
       "totalBytes": 15997075456, "freeBytes": 12884901888}
    ],
    "files": [
      {"path": "C:\\Program Files\\Kestrine", "folder": true},
      {"path": "C:\\Program Files\\Kestrine\\Connect.ico", "content": "icon"}
    ]
  },
  "steps": [
    {"do": "start"},
    {"do": "choose", "control": "cmbSize", "index": 1},
    {"do": "move", "left": 1200, "top": 900},
    {"do": "click", "control": "cmdClose"}
  ]
})json";
}

} // namespace sim
