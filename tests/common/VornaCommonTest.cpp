#include "common/VornaCommon.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "support/Support.h"

namespace {

constexpr wchar_t CLASS_ID[] = L"{7F0C1D52-6E0B-4B8F-9A54-1F0E3B7A2C99}";

TEST(GetComponentDirectory, IsTheFolderOfTheRegisteredServer) {
    support::RegistryValue progId(L"SOFTWARE\\Classes\\QXKELDAN.Vorna.1\\CLSID", L"", CLASS_ID);
    const struct {
        std::wstring server;
        std::wstring directory;
    } cases[] = {
        {L"C:\\Program Files\\Vorna\\Vorna.dll", L"C:\\Program Files\\Vorna\\"},
        {L"C:\\" + std::wstring(600, L'x') + L"\\Vorna.dll", L"C:\\" + std::wstring(600, L'x') + L"\\"},
        {L"Vorna.dll", L"Vorna.dll\\"},
        {L"", L""},
    };
    for (const auto& c : cases) {
        support::RegistryValue server(std::wstring(L"SOFTWARE\\Classes\\CLSID\\") + CLASS_ID + L"\\InprocServer32", L"",
                                      c.server);
        EXPECT_EQ(c.directory, VORNAUTILITY::GetComponentDirectory());
    }
    EXPECT_EQ(L"", VORNAUTILITY::GetComponentDirectory());
}

TEST(GetServiceObject, TurnsADocumentIntoALiveObject) {
    support::RegisterPlatform();
    vorna::com_ptr<IUnknown> service;
    vorna::CPWStringBuffer errorText;
    ASSERT_HR(S_OK,
              VORNAUTILITY::GetServiceObject(support::ServiceDocument(L"1", L"press", L"urn:p"), service, errorText));
    const auto object = service.try_as<IZEBServiceObject>();
    ASSERT_TRUE(object);
    vorna::bstr id;
    ASSERT_HR(S_OK, object->get_serviceId(id.put()));
    EXPECT_EQ(L"press", id.view());
    EXPECT_TRUE(errorText.empty());

    EXPECT_HR(E_FAIL, VORNAUTILITY::GetServiceObject(L"<service><half", service, errorText));
    EXPECT_FALSE(service);
    EXPECT_EQ(L"ServiceFactory CreateService() failed", errorText.view());
}

} // namespace
