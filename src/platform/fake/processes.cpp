#include "platform/fake/processes.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "core/vb.h"
#include "platform/fake/description_fields.h"
#include "platform/fake/json_numbers.h"

namespace fake {

namespace {} // namespace

void FakeProcesses::LoadJson(const nlohmann::json& description) {
    if (!description.contains("processes")) return;
    const auto& list = description["processes"];
    if (!list.is_array()) Fail("\"processes\" must be an array");
    for (const auto& p : list) {
        const auto pid = p.is_object() && p.contains("pid") ? WholeNumber<std::uint32_t>(p["pid"]) : std::nullopt;
        if (!pid) Fail("a process needs a \"pid\" (a number)");
        if (p.contains("name") && !p["name"].is_string()) Fail("a process's \"name\" must be a string");
        const std::string name = p.value("name", std::string{});
        if (!p.contains("holds")) continue;
        if (!p["holds"].is_array()) Fail("a process's \"holds\" must be an array");
        for (const auto& h : p["holds"]) {
            if (!h.is_object() || !h.contains("path") || !h["path"].is_string())
                Fail("a hold needs a \"path\" such as \"E:\\\\docs\\\\a.txt\"");
            if (h.contains("what") && !h["what"].is_string()) Fail("a hold's \"what\" must be a string");
            Add({*pid, name, h.value("what", std::string("file")), h["path"].get<std::string>()});
        }
    }
}

std::vector<platform::ProcessHold> FakeProcesses::WhoHolds(const std::string& root) {
    std::vector<platform::ProcessHold> found;
    if (root.empty()) return found;
    for (const auto& h : holds_)
        if (h.path.size() >= 2 && h.path[1] == ':' && vb::UpperChar(h.path[0]) == vb::UpperChar(root[0]))
            found.push_back(h);
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.pid < b.pid; });
    return found;
}

} // namespace fake
