// What a module needs to serve COM objects: the count that keeps it loaded, a base class for objects, a class factory.
#pragma once

#include "common/com/com_ptr.h"
#include "common/com/result_error.h"

#include <oleauto.h>
#include <windows.h>

#include <atomic>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

namespace vorna {

// Live objects and server locks of the module that this header is compiled into.
inline std::atomic<long> module_uses{0};

// The module that contains this code: the DLL itself, not the program that loaded it.
inline HMODULE this_module() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&module_uses), &module);
    return module;
}

// The full path of the module's file; empty on failure.
inline std::wstring this_module_path() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        DWORD length = GetModuleFileNameW(this_module(), path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

// Implements IUnknown. An object starts with one reference and deletes itself when the last one is released.
// Free-threaded.
template <typename Derived, typename... Interfaces>
class com_object : public Interfaces... {
  public:
    com_object() { ++module_uses; }
    virtual ~com_object() { --module_uses; }
    com_object(const com_object&) = delete;
    com_object& operator=(const com_object&) = delete;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (!object)
            return E_POINTER;
        *object = nullptr;
        // Copied, because marshallers pass IIDs that are not aligned.
        IID wanted;
        std::memcpy(&wanted, &iid, sizeof wanted);
        (void)(find_interface<Interfaces>(wanted, object) || ...);
        if (!*object)
            return E_NOINTERFACE;
        this->AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++references_); }
    STDMETHODIMP_(ULONG) Release() override {
        long left = --references_;
        if (left == 0)
            delete static_cast<Derived*>(this);
        return static_cast<ULONG>(left);
    }

  private:
    template <typename Interface>
    bool find_interface(REFIID iid, void** object) {
        bool found = iid == __uuidof(Interface) || iid == IID_IUnknown;
        if constexpr (std::is_base_of_v<IDispatch, Interface>)
            found = found || iid == IID_IDispatch;
        if (found)
            *object = static_cast<Interface*>(this);
        return found;
    }

    std::atomic<long> references_{1};
};

// The type description of one interface. It is read from the module's own type library on first use and then kept; a
// failure is not kept. Free-threaded.
class dispatch_type_cache {
  public:
    ~dispatch_type_cache() {
        if (ITypeInfo* type = type_)
            type->Release();
    }

    // type: valid as long as this object, no reference is added; null on failure. Does not throw: E_OUTOFMEMORY, or
    // TYPE_E_LIBNOTREGISTERED if the type library cannot be read.
    HRESULT get(REFIID iid, ITypeInfo*& type) noexcept {
        type = type_;
        return type ? S_OK : closed_door([&] { return load(iid, type); });
    }

  private:
    HRESULT load(REFIID iid, ITypeInfo*& type) {
        com_ptr<ITypeLib> library;
        com_ptr<ITypeInfo> found;
        if (FAILED(LoadTypeLibEx(this_module_path().c_str(), REGKIND_NONE, library.put())) ||
            FAILED(library->GetTypeInfoOfGuid(iid, found.put())))
            return TYPE_E_LIBNOTREGISTERED;
        // Another thread may have been faster; its description is used then.
        if (type_.compare_exchange_strong(type, found.get()))
            type = found.detach();
        return S_OK;
    }

    std::atomic<ITypeInfo*> type_{nullptr};
};

template <typename Interface>
HRESULT get_dispatch_type(ITypeInfo*& type) noexcept {
    static dispatch_type_cache cache;
    return cache.get(__uuidof(Interface), type);
}

// A com_object whose first interface is dual: IDispatch works through the type library in resource 1 of the module.
template <typename Derived, typename Dual, typename... Others>
class dispatch_object : public com_object<Derived, Dual, Others...> {
  public:
    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        if (!count)
            return E_POINTER;
        ITypeInfo* known = nullptr;
        *count = get_dispatch_type<Dual>(known) == S_OK ? 1 : 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** type) override {
        if (!type)
            return E_POINTER;
        *type = nullptr;
        if (index != 0)
            return DISP_E_BADINDEX;
        const HRESULT result = get_dispatch_type<Dual>(*type);
        if (*type)
            (*type)->AddRef();
        return result;
    }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
        ITypeInfo* type = nullptr;
        const HRESULT result = get_dispatch_type<Dual>(type);
        return result == S_OK ? type->GetIDsOfNames(names, count, ids) : result;
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* parameters, VARIANT* result,
                        EXCEPINFO* exception, UINT* argument) override {
        ITypeInfo* type = nullptr;
        const HRESULT known = get_dispatch_type<Dual>(type);
        if (known != S_OK)
            return known;
        return type->Invoke(static_cast<Dual*>(this), id, flags, parameters, result, exception, argument);
    }
};

// Creates objects of one class with their default constructor.
template <typename Class>
class class_factory : public com_object<class_factory<Class>, IClassFactory> {
  public:
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        if (!object)
            return E_POINTER;
        *object = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        return closed_door([&] {
            com_ptr<Class> made;
            made.attach(new Class());
            return made->QueryInterface(iid, object);
        });
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        lock ? ++module_uses : --module_uses;
        return S_OK;
    }
};

// Returns the class factory of Class, for DllGetClassObject and CoRegisterClassObject.
template <typename Class>
HRESULT get_class_factory(REFIID iid, void** object) {
    com_ptr<class_factory<Class>> factory;
    factory.attach(new (std::nothrow) class_factory<Class>());
    return factory ? factory->QueryInterface(iid, object) : E_OUTOFMEMORY;
}

} // namespace vorna
