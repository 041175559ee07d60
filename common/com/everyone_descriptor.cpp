#include "common/com/everyone_descriptor.h"

namespace vorna {

namespace {

template <typename Function>
Function* find(HMODULE library, const char* name) {
    return library ? reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name))) : nullptr;
}

} // namespace

everyone_descriptor::everyone_descriptor()
    : complete_(InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) &&
                SetSecurityDescriptorDacl(&descriptor_, TRUE, nullptr, FALSE)) {}

everyone_descriptor::everyone_descriptor(DWORD accessMask) : library_(LoadLibraryW(L"advapi32.dll")) {
    const auto initialize =
        find<decltype(::InitializeSecurityDescriptor)>(library_.get(), "InitializeSecurityDescriptor");
    const auto allocate_sid = find<decltype(::AllocateAndInitializeSid)>(library_.get(), "AllocateAndInitializeSid");
    const auto set_entries = find<decltype(::SetEntriesInAclW)>(library_.get(), "SetEntriesInAclW");
    const auto set_dacl = find<decltype(::SetSecurityDescriptorDacl)>(library_.get(), "SetSecurityDescriptorDacl");
    freeSid_ = find<decltype(::FreeSid)>(library_.get(), "FreeSid");
    if (!initialize || !allocate_sid || !set_entries || !set_dacl || !freeSid_)
        return;

    SID_IDENTIFIER_AUTHORITY world = {{0, 0, 0, 0, 0, 1}};
    if (!initialize(&descriptor_, SECURITY_DESCRIPTOR_REVISION) ||
        !allocate_sid(&world, 1, 0, 0, 0, 0, 0, 0, 0, 0, &sid_))
        return;

    EXPLICIT_ACCESSW everyone{};
    everyone.grfAccessPermissions = accessMask;
    everyone.grfAccessMode = SET_ACCESS;
    everyone.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
    everyone.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    everyone.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    everyone.Trustee.ptstrName = static_cast<LPWSTR>(sid_);
    PACL list = nullptr;
    if (set_entries(1, &everyone, nullptr, &list) != ERROR_SUCCESS)
        return;
    list_.reset(list);
    complete_ = set_dacl(&descriptor_, TRUE, list, FALSE);
}

everyone_descriptor::~everyone_descriptor() {
    if (sid_)
        freeSid_(sid_);
}

} // namespace vorna
