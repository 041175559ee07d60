// Entry points of QXKeldan.dll, the in-process half of the platform.
#include "QXKeldan.h"
#include "common/com/com_server.h"
#include "platform/aggregator/Aggregator.h"
#include "platform/archive/SecureArchiveManager.h"
#include "platform/registration/ServerClass.h"
#include "platform/service/ServiceFactory.h"
#include "platform/xml/XMLSimpleAccessor.h"

namespace {

// The classes of this module.
const keldan::ServerClass CLASSES[] = {
    {CLSID_XMLSimpleAccessor, L"QXKELDAN.XMLSimpleAccessor", L"Keldan XML accessor",
     vorna::get_class_factory<keldan::XMLSimpleAccessor>},
    {CLSID_ZEBService, L"QXKELDAN.ZEBService", L"Keldan service factory",
     vorna::get_class_factory<keldan::ServiceFactory>},
    {CLSID_Aggregator, L"QXKELDAN.Aggregator", L"Keldan aggregator", vorna::get_class_factory<keldan::Aggregator>},
    {CLSID_ZEBSecureArchiveManager, L"QXKELDAN.ZEBSecureArchiveManager", L"Keldan secure archive manager",
     vorna::get_class_factory<keldan::SecureArchiveManager>},
};

} // namespace

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(module);
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* object) {
    if (!object)
        return E_POINTER;
    *object = nullptr;
    for (const auto& entry : CLASSES)
        if (entry.clsid == clsid)
            return entry.getClassFactory(iid, object);
    return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() {
    return vorna::module_uses == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    return vorna::closed_door(
        [] { return keldan::RegisterModule(vorna::this_module_path(), keldan::ServerKind::InProcess, CLASSES); });
}

STDAPI DllUnregisterServer() {
    return vorna::closed_door([] { return keldan::UnregisterModule(vorna::this_module_path(), CLASSES); });
}
