// The management service: one WQL query through COM (IWbemLocator,
// IWbemServices::ExecQuery), answered with the properties the logic reads.
#include "platform/win32/raii.h"

#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>

#include "platform/win32/backend.h"

namespace win32 {

namespace {

std::wstring Wide(const std::string& text) {
    if (text.empty()) return {};
    const int n = ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<std::size_t>(n), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
    return out;
}

std::string Narrow(const wchar_t* text, std::size_t length) {
    if (length == 0) return {};
    const int n = ::WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(length), nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<std::size_t>(n), '\0');
    ::WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(length), out.data(), n, nullptr, nullptr);
    return out;
}

// The namespace a "winmgmts:" moniker names: "winmgmts:{...}!//./root/cimv2"
// gives "\\.\root\cimv2"; a moniker that names only the machine (or nothing)
// means its default namespace, root\cimv2.
std::wstring NamespaceOf(const std::string& moniker) {
    std::string path;
    if (const auto bang = moniker.find('!'); bang != std::string::npos) {
        path = moniker.substr(bang + 1);
    } else if (const auto colon = moniker.find(':'); colon != std::string::npos) {
        path = moniker.substr(colon + 1);
        if (!path.empty() && path.front() == '{')
            path.erase(0, path.find('}') == std::string::npos ? path.size() : path.find('}') + 1);
    }
    for (char& c : path) c = c == '/' ? '\\' : c;
    if (path.empty()) path = "\\\\.";
    if (path.rfind("\\\\", 0) != 0) return Wide("\\\\.\\" + path);
    // "\\server" alone, or "\\server\": the default namespace of that machine.
    const auto slash = path.find('\\', 2);
    if (slash == std::string::npos || slash + 1 == path.size())
        path = path.substr(0, slash == std::string::npos ? path.size() : slash) + "\\root\\cimv2";
    return Wide(path);
}

// A COM interface pointer released at the end of its scope.
template <typename T> class Com {
public:
    Com() = default;
    ~Com() {
        if (p_ != nullptr) p_->Release();
    }
    Com(const Com&) = delete;
    Com& operator=(const Com&) = delete;
    T** put() { return &p_; }
    T* operator->() const { return p_; }
    T* get() const { return p_; }

private:
    T* p_ = nullptr;
};

// COM for this thread for the length of one query.
class ComScope {
public:
    ComScope() : hr_(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComScope() {
        if (SUCCEEDED(hr_)) ::CoUninitialize();
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;

private:
    HRESULT hr_;
};

class Bstr {
public:
    explicit Bstr(const std::wstring& text) : b_(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
    ~Bstr() { ::SysFreeString(b_); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR get() const { return b_; }

private:
    BSTR b_;
};

std::string Property(IWbemClassObject* object, const wchar_t* name) {
    VARIANT value;
    ::VariantInit(&value);
    std::string text;
    if (SUCCEEDED(object->Get(name, 0, &value, nullptr, nullptr)) && value.vt == VT_BSTR && value.bstrVal != nullptr)
        text = Narrow(value.bstrVal, ::SysStringLen(value.bstrVal));
    ::VariantClear(&value);
    return text;
}

} // namespace

std::optional<std::vector<platform::ManagementObject>> Management::ExecQuery(const std::string& moniker,
                                                                             const std::string& query) {
    ComScope com;
    // The process's security defaults; a second call fails harmlessly.
    ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE,
                           nullptr, EOAC_NONE, nullptr);
    Com<IWbemLocator> locator;
    if (FAILED(::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                  reinterpret_cast<void**>(locator.put()))))
        return std::nullopt;
    Com<IWbemServices> services;
    const Bstr ns(NamespaceOf(moniker));
    if (FAILED(locator->ConnectServer(ns.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.put())))
        return std::nullopt;
    ::CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                        RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    const Bstr language(L"WQL");
    const Bstr text(Wide(query));
    Com<IEnumWbemClassObject> results;
    if (FAILED(services->ExecQuery(language.get(), text.get(), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                   nullptr, results.put())))
        return std::nullopt;
    std::vector<platform::ManagementObject> objects;
    for (;;) {
        Com<IWbemClassObject> object;
        ULONG returned = 0;
        const HRESULT hr = results->Next(static_cast<LONG>(WBEM_INFINITE), 1, object.put(), &returned);
        if (FAILED(hr)) return std::nullopt;
        if (returned == 0) break;
        objects.push_back({Property(object.get(), L"Caption"), Property(object.get(), L"DeviceID"),
                           Property(object.get(), L"PNPDeviceID")});
    }
    return objects;
}

} // namespace win32
