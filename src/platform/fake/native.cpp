#include "platform/fake/handles.h"
#include "platform/portable/native_records.h"

#include "platform/fake/json_numbers.h"

#include "platform/portable/text.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/fake/description_fields.h"
#include "platform/fake/journal_text.h"
#include "platform/fake/machine.h"

namespace fake {

namespace {

using platform::Handle;
using platform::NtStatus;

using portable::kStatusInvalidInfoClass;
using portable::kStillActive;

std::string Hex(std::uint32_t value) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out = "0x00000000";
    for (int i = 9; i >= 2; --i, value >>= 4) out[static_cast<std::size_t>(i)] = digits[value & 0xF];
    return out;
}

std::string Status(NtStatus status) { return Hex(static_cast<std::uint32_t>(status)); }

template <typename T> T Num(const nlohmann::json& j, const char* key, T fallback, std::uint64_t max) {
    if (!j.contains(key)) return fallback;
    if (!j[key].is_number_unsigned() || j[key].get<std::uint64_t>() > max)
        Fail(std::string("handles: \"") + key + "\" must be a number from 0 to " + std::to_string(max));
    return static_cast<T>(j[key].get<std::uint64_t>());
}

bool Flag(const nlohmann::json& j, const char* key, bool fallback) {
    if (!j.contains(key)) return fallback;
    if (!j[key].is_boolean()) Fail(std::string("handles: \"") + key + "\" must be true or false");
    return j[key].get<bool>();
}

} // namespace

// --- describing the table ---

void NativeHandles::LoadJson(const nlohmann::json& d) {
    if (!d.is_object()) Fail("\"handles\" must be an object");
    ownProcessId_ = Num<std::uint32_t>(d, "ownProcessId", ownProcessId_, 0xFFFFFFFFu);
    fileTypeIndex_ = Num<std::uint8_t>(d, "fileTypeIndex", fileTypeIndex_, 0xFF);
    nulOpens_ = Flag(d, "nulOpens", nulOpens_);
    tableStatus_ = static_cast<NtStatus>(Num<std::uint32_t>(d, "tableStatus", 0, 0xFFFFFFFFu));
    if (d.contains("deniedProcesses")) {
        if (!d["deniedProcesses"].is_array()) Fail("handles: \"deniedProcesses\" must be an array of process ids");
        for (const auto& id : d["deniedProcesses"]) {
            const auto pid = WholeNumber<std::uint32_t>(id);
            if (!pid) Fail("handles: \"deniedProcesses\" must be an array of process ids");
            DenyProcess(*pid);
        }
    }
    if (d.contains("entries")) {
        if (!d["entries"].is_array()) Fail("handles: \"entries\" must be an array");
        for (const auto& e : d["entries"]) {
            if (!e.is_object() || !e.contains("processId") || !e.contains("handle"))
                Fail("handles: every entry needs a \"processId\" and a \"handle\"");
            HandleEntry entry;
            entry.processId = Num<std::uint32_t>(e, "processId", 0, 0xFFFFFFFFu);
            entry.handle = Num<std::uint16_t>(e, "handle", 0, 0xFFFF);
            entry.typeIndex = Num<std::uint8_t>(e, "type", 0, 0xFF);
            if (e.contains("name") && !e["name"].is_string()) Fail("handles: an entry's \"name\" must be a string");
            entry.name = e.value("name", std::string());
            entry.fileType = Num<std::uint32_t>(e, "fileType", platform::kFileTypeDisk, 0xFFFFFFFFu);
            entry.typeQueryHangs = Flag(e, "typeQueryHangs", false);
            entry.copyDenied = Flag(e, "copyDenied", false);
            entry.closeFails = Flag(e, "closeFails", false);
            Add(std::move(entry));
        }
    }
}

void NativeHandles::Add(HandleEntry entry) {
    if (entry.handle == 0) Fail("handles: a handle value must not be 0");
    const std::uint64_t key = Key(entry.processId, entry.handle);
    if (index_.count(key))
        Fail("handles: process " + std::to_string(entry.processId) + " holds handle " + std::to_string(entry.handle) +
             " twice");
    known_.insert(entry.processId);
    index_.emplace(key, entries_.size());
    entries_.push_back(Slot{std::move(entry), true, 0});
    ++open_;
}

NativeHandles::Slot* NativeHandles::find(std::uint32_t processId, Handle handle) {
    return const_cast<Slot*>(std::as_const(*this).find(processId, handle));
}

const NativeHandles::Slot* NativeHandles::find(std::uint32_t processId, Handle handle) const {
    if (handle <= 0 || handle > 0xFFFF) return nullptr;
    auto it = index_.find(Key(processId, static_cast<std::uint64_t>(handle)));
    return it == index_.end() ? nullptr : &entries_[it->second];
}

Handle NativeHandles::addOwn(HandleEntry entry, std::uint32_t targetProcess) {
    // Handle values of a process are multiples of 4; the table holds 16 bits of them.
    do {
        nextOwn_ = nextOwn_ + 4 > 0xFFFF ? 4 : nextOwn_ + 4;
    } while (index_.count(Key(ownProcessId_, nextOwn_)));
    entry.processId = ownProcessId_;
    entry.handle = static_cast<std::uint16_t>(nextOwn_);
    Add(std::move(entry));
    entries_.back().targetProcess = targetProcess;
    return static_cast<Handle>(nextOwn_);
}

void NativeHandles::close(Slot& slot) {
    slot.open = false;
    index_.erase(Key(slot.entry.processId, slot.entry.handle));
    --open_;
}

bool NativeHandles::processExists(std::uint32_t processId) const {
    return processId == ownProcessId_ || known_.count(processId) != 0;
}

bool NativeHandles::IsOpen(std::uint32_t processId, std::uint16_t handle) const {
    return find(processId, handle) != nullptr;
}

std::vector<HandleEntry> NativeHandles::OpenHandles(std::uint32_t processId) const {
    std::vector<HandleEntry> out;
    for (const Slot& s : entries_)
        if (s.open && s.entry.processId == processId) out.push_back(s.entry);
    return out;
}

void NativeHandles::record(std::string name, std::vector<std::string> args, std::string result, bool request) {
    machine_.Record(std::move(name), std::move(args), std::move(result), request);
}

// --- kernel32 ---

std::uint32_t NativeHandles::GetCurrentProcessId() {
    record("GetCurrentProcessId", {}, std::to_string(ownProcessId_));
    return ownProcessId_;
}

Handle NativeHandles::OpenNul() {
    if (!nulOpens_) return platform::kInvalidHandleValue;
    return addOwn(HandleEntry{.name = "\\Device\\Null", .fileType = platform::kFileTypeChar});
}

std::uint32_t NativeHandles::GetFileTypeOnThread(Handle file, std::uint32_t milliseconds, std::uint32_t& fileType) {
    const Slot* slot = own(file);
    std::uint32_t wait = platform::kWaitObject0;
    if (slot && slot->entry.typeQueryHangs) {
        // The caller waits out the limit; the machine's clock pays for it.
        machine_.Advance(milliseconds / 1000.0);
        wait = platform::kWaitTimeout;
        fileType = kStillActive;
    } else {
        fileType = slot ? slot->entry.fileType : platform::kFileTypeUnknown;
    }
    record("GetFileTypeOnThread", {std::to_string(file), std::to_string(milliseconds)},
           wait == platform::kWaitTimeout ? "WAIT_TIMEOUT" : std::to_string(fileType));
    return wait;
}

// --- ntdll ---

NtStatus NativeHandles::NtQuerySystemInformation(std::uint32_t systemInformationClass, std::span<std::uint8_t> buffer,
                                                 std::uint32_t& returnLength) {
    namespace t = platform::handle_table;
    NtStatus status = tableStatus_;
    returnLength = 0;
    if (systemInformationClass != platform::kSystemHandleInformation) {
        status = kStatusInvalidInfoClass;
    } else if (status >= 0) {
        // Every object has a kernel address of its own, derived from its place in the table.
        status = portable::WriteHandleTable(
            buffer, open_,
            [&](auto emit) {
                std::size_t at = t::kEntries;
                for (const Slot& s : entries_) {
                    if (!s.open) continue;
                    emit(portable::HandleRow{s.entry.processId, s.entry.typeIndex ? s.entry.typeIndex : fileTypeIndex_,
                                             s.entry.handle, 0xFFFF800000000000ull + 0x40ull * at});
                    at += t::kEntrySize;
                }
            },
            returnLength);
    }
    record("NtQuerySystemInformation", {std::to_string(systemInformationClass), std::to_string(buffer.size())},
           Status(status));
    return status;
}

NtStatus NativeHandles::NtOpenProcess(Handle& processHandle, std::uint32_t desiredAccess,
                                      const platform::ClientId& clientId) {
    processHandle = 0;
    NtStatus status = platform::kStatusSuccess;
    const auto id = clientId.UniqueProcess;
    if (id > 0xFFFFFFFFu || !processExists(static_cast<std::uint32_t>(id)))
        status = platform::kStatusInvalidParameter;
    else if (denied_.count(static_cast<std::uint32_t>(id)))
        status = platform::kStatusAccessDenied;
    else
        processHandle = addOwn(HandleEntry{.typeIndex = kProcessTypeIndex, .fileType = platform::kFileTypeUnknown},
                               static_cast<std::uint32_t>(id));
    record("NtOpenProcess", {std::to_string(id), Hex(desiredAccess)},
           status >= 0 ? std::to_string(processHandle) : Status(status));
    return status;
}

NtStatus NativeHandles::NtDuplicateObject(Handle sourceProcess, Handle sourceHandle, Handle targetProcess,
                                          Handle& targetHandle, std::uint32_t desiredAccess,
                                          std::uint32_t handleAttributes, std::uint32_t options) {
    targetHandle = 0;
    // Which process a process handle of the own process stands for.
    auto processOf = [this](Handle process) -> std::int64_t {
        if (process == kCurrentProcess) return ownProcessId_;
        const Slot* s = own(process);
        return s && s->targetProcess ? std::int64_t{s->targetProcess} : -1;
    };
    const std::int64_t from = processOf(sourceProcess);
    const std::int64_t to = processOf(targetProcess);
    NtStatus status = platform::kStatusSuccess;
    Slot* source = from < 0 ? nullptr : find(static_cast<std::uint32_t>(from), sourceHandle);
    if (!source || to != ownProcessId_) {
        status = platform::kStatusInvalidHandle;
    } else {
        const HandleEntry copy = source->entry;
        const std::uint32_t target = source->targetProcess;
        if (options & platform::kDuplicateCloseSource) close(*source);
        if (copy.copyDenied)
            status = platform::kStatusAccessDenied;
        else
            targetHandle = addOwn(copy, target);
    }
    record("NtDuplicateObject",
           {std::to_string(sourceProcess), std::to_string(sourceHandle), std::to_string(targetProcess),
            Hex(desiredAccess), std::to_string(handleAttributes), std::to_string(options)},
           status >= 0 ? std::to_string(targetHandle) : Status(status),
           (options & platform::kDuplicateCloseSource) != 0);
    return status;
}

NtStatus NativeHandles::NtQueryObject(Handle handle, std::uint32_t objectInformationClass,
                                      std::span<std::uint8_t> buffer, std::uint32_t& returnLength) {
    returnLength = 0;
    const Slot* slot = own(handle);
    NtStatus status = platform::kStatusSuccess;
    if (!slot) {
        status = platform::kStatusInvalidHandle;
    } else if (objectInformationClass != platform::kObjectNameInformation) {
        status = kStatusInvalidInfoClass;
    } else {
        status = portable::WriteObjectName(buffer, slot->entry.name, returnLength);
    }
    record("NtQueryObject", {std::to_string(handle), std::to_string(objectInformationClass)},
           status >= 0 ? Quote(slot->entry.name) : Status(status));
    return status;
}

NtStatus NativeHandles::NtClose(Handle handle) {
    NtStatus status = platform::kStatusSuccess;
    if (handle != kCurrentProcess) {
        Slot* slot = own(handle);
        if (!slot)
            status = platform::kStatusInvalidHandle;
        else if (slot->entry.closeFails)
            status = platform::kStatusHandleNotClosable;
        else
            close(*slot);
    }
    record("NtClose", {std::to_string(handle)}, Status(status));
    return status;
}

// --- the storage service with the "NUL" device ---

Handle StorageWithNul::CreateFileA(const std::string& fileName, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                   std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes) {
    if (fileName != "NUL" && fileName != "nul" && fileName != "\\\\.\\NUL")
        return drivers_.CreateFileA(fileName, desiredAccess, shareMode, creationDisposition, flagsAndAttributes);
    const Handle handle = handles_.OpenNul();
    if (handle != platform::kInvalidHandleValue) nul_.insert(handle);
    machine_.Record(
        "CreateFileA",
        {Quote(fileName), Hex(desiredAccess), std::to_string(shareMode), std::to_string(flagsAndAttributes)},
        std::to_string(handle), false);
    return handle;
}

bool StorageWithNul::CloseHandle(Handle handle) {
    if (nul_.erase(handle) == 0) return drivers_.CloseHandle(handle);
    return handles_.NtClose(handle) >= 0;
}

} // namespace fake
