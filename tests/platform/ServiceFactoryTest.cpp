// The registered service factory, created as clients create it.
#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/services/platformservices.h"
#include "support/Support.h"

#include <gtest/gtest.h>

#include <objbase.h>

namespace {

using support::Narrow;
using vorna::bstr;
using vorna::com_ptr;

class ServiceFactoryTest : public testing::Test {
  protected:
    // The seven properties in order, separated by bars.
    std::string Create(std::wstring_view document) {
        com_ptr<IUnknown> made;
        EXPECT_HR(S_OK, factory_->CreateService(bstr(document).get(), made.put()));
        auto service = made.try_as<IZEBServiceObject>();
        if (!service)
            return "no service";
        std::string all;
        for (auto get :
             {&IZEBServiceObject::get_portID, &IZEBServiceObject::get_serviceId, &IZEBServiceObject::get_serviceURI,
              &IZEBServiceObject::get_model, &IZEBServiceObject::get_address, &IZEBServiceObject::get_addressType,
              &IZEBServiceObject::get_friendlyName}) {
            bstr value;
            EXPECT_HR(S_OK, (service.get()->*get)(value.put()));
            all += Narrow(value.view()) + "|";
        }
        return all;
    }

    com_ptr<IZEBServiceFactory> factory_ = support::Create<IZEBServiceFactory>(vorna::PROGID_SERVICE_FACTORY);
};

TEST_F(ServiceFactoryTest, ReadsTheDescription) {
    EXPECT_EQ("p&1|s|u/r:i|M1|10.0.0.7|IP|Press 7|", Create(support::ServiceDocument(L"p&amp;1", L" s\n", L"u/r:i")));
}

TEST_F(ServiceFactoryTest, MissingValuesAreEmpty) {
    EXPECT_EQ("|||||||", Create(L"<service/>"));
    EXPECT_EQ("|7|||||x|",
              Create(L"<?xml version='1.0'?><service xmlns='urn:s'><serviceId>7</serviceId><model>no</model>"
                     L"<additionalInfo><friendlyName>x</friendlyName></additionalInfo></service>"));
}

TEST_F(ServiceFactoryTest, RefusesOtherDocuments) {
    for (const wchar_t* document : {L"", L"<service>", L"<Service/>", L"<!DOCTYPE service><service/>"}) {
        auto* poison = reinterpret_cast<IUnknown*>(8);
        EXPECT_HR(vorna::RESULT_XML_MALFORMED, factory_->CreateService(bstr(document).get(), &poison));
        EXPECT_EQ(nullptr, poison);
    }
    EXPECT_HR(E_POINTER, factory_->CreateService(bstr(L"<service/>").get(), nullptr));
}

} // namespace
