// Calls by name, as scripts make them.
#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/services/platformservices.h"
#include "support/Support.h"

namespace {

using vorna::bstr;

HRESULT InvokeByName(IDispatch* dispatch, const wchar_t* name, std::vector<VARIANTARG> reversedArguments,
                     std::wstring& answer) {
    auto* names = const_cast<LPOLESTR>(name);
    DISPID id = 0;
    if (HRESULT found = dispatch->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_NEUTRAL, &id); found != S_OK)
        return found;
    DISPPARAMS parameters{reversedArguments.data(), nullptr, static_cast<UINT>(reversedArguments.size()), 0};
    VARIANT result{};
    const HRESULT invoked = dispatch->Invoke(id, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD | DISPATCH_PROPERTYGET,
                                             &parameters, &result, nullptr, nullptr);
    VariantChangeType(&result, &result, 0, VT_BSTR);
    answer = vorna::view_of(result.bstrVal);
    VariantClear(&result);
    return invoked;
}

TEST(LateBinding, ScriptsReadPropertiesAndCallMethods) {
    std::wstring answer;
    EXPECT_HR(S_OK, InvokeByName(support::PlatformService(L"P", L"S", L"U").try_as<IDispatch>().get(), L"friendlyName",
                                 {}, answer));
    EXPECT_EQ(L"Press 7", answer);
    const auto accessor = support::Create<IXMLSimpleAccessor>(vorna::PROGID_XML_ACCESSOR);
    ASSERT_HR(S_OK, accessor->Load(bstr(L"<a b='7'/>").get()));
    const bstr path(L"/a/@b");
    VARIANTARG arguments[2]{};
    arguments[0].vt = VT_I2;
    arguments[0].iVal = 4;
    arguments[1].vt = VT_BSTR;
    arguments[1].bstrVal = path.get();
    EXPECT_HR(S_OK, InvokeByName(accessor.get(), L"query", {arguments[0], arguments[1]}, answer));
    EXPECT_EQ(L"7", answer);
    // The method is found by its name: other arguments are needed.
    for (const auto& [progId, method] : {std::pair{vorna::PROGID_AGGREGATOR, L"GetData"},
                                         {vorna::PROGID_ARCHIVE_MANAGER, L"AddStream"},
                                         {vorna::PROGID_SERVICE_FACTORY, L"CreateService"}})
        EXPECT_HR(DISP_E_BADPARAMCOUNT, InvokeByName(support::Create<IDispatch>(progId).get(), method, {}, answer))
            << support::Narrow(method);
}

TEST(LateBinding, BothInterfacesOfTheArchiveManagerAnswerToTheMethodsOfBoth) {
    const support::TestFolder folder;
    const auto manager = support::Create<ISecureArchiveManager>(vorna::PROGID_ARCHIVE_MANAGER);
    const auto streams = manager.try_as<IArchiveStreams>();
    ASSERT_TRUE(streams);
    EXPECT_HR(E_POINTER, streams->GetStreamNames(nullptr));
    ASSERT_HR(S_OK, manager->put_Archive(bstr((folder.Path() / "A.sam").wstring()).get()));
    ASSERT_HR(S_OK, manager->AddStream(bstr(L"a").get(), bstr(L"b").get(), 0));
    VARIANTARG kind{};
    kind.vt = VT_I4;
    kind.lVal = 2;
    std::wstring answer;
    for (IDispatch* object : {static_cast<IDispatch*>(manager.get()), static_cast<IDispatch*>(streams.get())}) {
        EXPECT_HR(S_OK, InvokeByName(object, L"GetStreamNames", {}, answer));
        EXPECT_EQ(L"a\xFFFF", answer);
        EXPECT_HR(S_OK, InvokeByName(object, L"GetEntryCount", {kind}, answer));
        EXPECT_EQ(L"1", answer);
        EXPECT_HR(DISP_E_UNKNOWNNAME, InvokeByName(object, L"GetNothing", {}, answer));
    }
}

} // namespace
