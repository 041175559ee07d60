// The module as the system sees it: type library, registration, unloading, apartments.
#include "ComponentTest.h"

#include "common/com/results.h"
#include "common/com/unique_any.h"

#include <tuple>

using namespace vorna;

namespace {

std::wstring ClassesValue(const std::wstring& key, const wchar_t* name = L"") {
    wchar_t text[512] = L"";
    DWORD size = sizeof text;
    if (RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_REG_SZ, nullptr, text, &size) != ERROR_SUCCESS)
        return L"(missing)";
    return text;
}

std::wstring Documentation(ITypeLib& library, INT index) {
    bstr name, help;
    library.GetDocumentation(index, name.put(), help.put(), nullptr, nullptr);
    return name.str() + L"|" + help.str();
}

std::pair<TYPEKIND, WORD> KindAndFlags(ITypeInfo& type) {
    TYPEATTR* attribute = nullptr;
    EXPECT_HR(S_OK, type.GetTypeAttr(&attribute));
    const std::pair<TYPEKIND, WORD> result(attribute->typekind, attribute->wTypeFlags);
    type.ReleaseTypeAttr(attribute);
    return result;
}

} // namespace

TEST_F(ComponentTest, TypeLibraryDescribesThreeTypesInOrder) {
    com_ptr<ITypeLib> library;
    ASSERT_HR(S_OK, LoadTypeLibEx((folder_.Path() / "Vorna.dll").c_str(), REGKIND_NONE, library.put()));
    TLIBATTR* attributes = nullptr;
    ASSERT_HR(S_OK, library->GetLibAttr(&attributes));
    EXPECT_EQ(0x409u, attributes->lcid);
    EXPECT_EQ(1, attributes->wMajorVerNum);
    library->ReleaseTLibAttr(attributes);
    EXPECT_EQ(L"VornaLib|Vorna 1.0 Type Library", Documentation(*library.get(), -1));
    constexpr WORD DUAL = TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FOLEAUTOMATION;
    const std::tuple<const wchar_t*, TYPEKIND, WORD> types[] = {
        {L"Vorna|Vorna Class", TKIND_COCLASS, TYPEFLAG_FCANCREATE},
        {L"IXDMAccessEx|IXDMAccessEx Interface", TKIND_DISPATCH, DUAL},
        {L"IComBaseClient|IComBaseClient Interface", TKIND_INTERFACE, TYPEFLAG_FOLEAUTOMATION},
    };
    ASSERT_EQ(std::size(types), library->GetTypeInfoCount());
    UINT index = 0;
    for (const auto& [text, kind, flags] : types) {
        EXPECT_EQ(text, Documentation(*library.get(), static_cast<INT>(index)));
        com_ptr<ITypeInfo> type;
        ASSERT_HR(S_OK, library->GetTypeInfo(index++, type.put()));
        EXPECT_EQ(kind, KindAndFlags(*type.get()).first) << support::Narrow(text);
        HREFTYPE reference = 0;
        com_ptr<ITypeInfo> early;
        // Wine hides one flag in the late-bound view; the interface behind it shows all.
        if (kind == TKIND_DISPATCH && type->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference) == S_OK &&
            type->GetRefTypeInfo(reference, early.put()) == S_OK)
            type = early;
        EXPECT_EQ(flags, KindAndFlags(*type.get()).second & ~TYPEFLAG_FDISPATCHABLE) << support::Narrow(text);
    }
}

TEST_F(ComponentTest, UnregistrationRemovesAllKeysOfTheRegistration) {
    const std::wstring classKey = L"CLSID\\{E7A8F1C4-0B6D-4F3B-8C55-2D9E64B7A913}";
    const std::wstring applicationId = ClassesValue(L"AppID\\Vorna.DLL", L"AppID");
    const struct {
        std::wstring key;
        const wchar_t* name;
        std::wstring value;
    } entries[] = {
        {L"QXKELDAN.Vorna.1", L"", L"Vorna Class"},
        {L"QXKELDAN.Vorna.1\\CLSID", L"", classKey.substr(6)},
        {L"QXKELDAN.Vorna\\CurVer", L"", L"QXKELDAN.Vorna.1"},
        {classKey, L"", L"Vorna Class"},
        {classKey, L"AppID", applicationId},
        {classKey + L"\\ProgID", L"", L"QXKELDAN.Vorna.1"},
        {classKey + L"\\VersionIndependentProgID", L"", L"QXKELDAN.Vorna"},
        {classKey + L"\\InprocServer32", L"", (folder_.Path() / "Vorna.dll").wstring()},
        {classKey + L"\\InprocServer32", L"ThreadingModel", L"Free"},
        {classKey + L"\\TypeLib", L"", L"{3C9F4A0E-52B7-4D0B-A6BE-91D1E60F7B30}"},
        {L"AppID\\" + applicationId, L"", L"Vorna"},
    };
    for (const auto& entry : entries)
        EXPECT_EQ(entry.value, ClassesValue(entry.key, entry.name)) << support::Narrow(entry.key);

    EXPECT_TRUE(CPComPtr<>::RegisterComponent((folder_.Path() / "Vorna.dll").c_str(), false));
    for (const wchar_t* key : {L"QXKELDAN.Vorna.1", L"QXKELDAN.Vorna", classKey.c_str(), L"AppID\\Vorna.DLL",
                               L"TypeLib\\{3C9F4A0E-52B7-4D0B-A6BE-91D1E60F7B30}\\1.0\\0"})
        EXPECT_EQ(L"(missing)", ClassesValue(key)) << support::Narrow(key);
    for (const wchar_t* kept : {L"CLSID", L"AppID"}) {
        HKEY key = nullptr;
        EXPECT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CLASSES_ROOT, kept, 0, KEY_READ, &key));
        unique_registry_key close(key);
    }
}

TEST_F(ComponentTest, ModuleUnloadsOnlyWithoutObjectsAndLocks) {
    component_.reset();
    unique_library module(LoadLibraryW((folder_.Path() / "Vorna.dll").c_str()));
    ASSERT_TRUE(module);
    const auto canUnload =
        reinterpret_cast<HRESULT(WINAPI*)()>(reinterpret_cast<void*>(GetProcAddress(module.get(), "DllCanUnloadNow")));
    const auto getClass = reinterpret_cast<HRESULT(WINAPI*)(REFCLSID, REFIID, void**)>(
        reinterpret_cast<void*>(GetProcAddress(module.get(), "DllGetClassObject")));
    EXPECT_HR(S_OK, canUnload());
    com_ptr<IClassFactory> factory;
    EXPECT_HR(CLASS_E_CLASSNOTAVAILABLE, getClass(IID_IUnknown, IID_IClassFactory, factory.put_void()));
    ASSERT_HR(S_OK, getClass(__uuidof(Vorna), IID_IClassFactory, factory.put_void()));
    com_ptr<IComBaseClient> object;
    ASSERT_HR(S_OK, factory->CreateInstance(nullptr, __uuidof(IComBaseClient), object.put_void()));
    EXPECT_HR(CLASS_E_NOAGGREGATION,
              factory->CreateInstance(object.get(), IID_IUnknown, com_ptr<IUnknown>().put_void()));
    factory->LockServer(TRUE);
    factory.reset();
    EXPECT_HR(S_FALSE, canUnload());
    object.reset();
    EXPECT_HR(S_FALSE, canUnload()) << "the server lock";
    ASSERT_HR(S_OK, getClass(__uuidof(Vorna), IID_IClassFactory, factory.put_void()));
    factory->LockServer(FALSE);
    factory.reset();
    EXPECT_HR(S_OK, canUnload());
}

TEST_F(ComponentTest, ClientsInASingleThreadedApartmentAreServedThroughMarshalling) {
    HRESULT early = E_FAIL, late = E_FAIL;
    std::wstring text;
    support::RunInApartment(COINIT_APARTMENTTHREADED, [&] {
        const auto proxy = support::Create<IXDMAccessEx>(PROGID_VORNA);
        bstr info, document;
        early = proxy->GetData(nullptr, bstr(L"/x").get(), bstr(L"").get(), info.put(), document.put());
        text = info.str();
        DISPID id = 0;
        wchar_t name[] = L"SetData";
        LPOLESTR names[] = {name};
        late = proxy->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
    });
    EXPECT_HR(result_code(0x80000142), early);
    EXPECT_EQ(L"Invalid Service Object", text);
    EXPECT_HR(S_OK, late);
}
