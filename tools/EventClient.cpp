#include "tools/EventClient.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/xml/XmlCharacters.h"
#include "common/xml/XmlEscape.h"
#include "tools/Components.h"
#include "tools/Failure.h"

#include <set>

namespace vornactl {

namespace {

Failure Refusal(HRESULT result, std::wstring action, long subscriptions, size_t payloadSize) {
    if (result == HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA))
        return Failure(result, action + L": queued for " + std::to_wstring(subscriptions) + L" of its subscriptions",
                       QUEUE_FULL);
    if (result == HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE))
        return Failure(result, std::move(action),
                       L"The payload has " + std::to_wstring(payloadSize) +
                           L" characters, more than the event manager takes. No subscription got the event.");
    return Failure(result, std::move(action));
}

} // namespace

std::wstring PropertiesDocument(std::span<const std::wstring> properties) {
    if (properties.empty())
        return {};
    std::set<std::wstring> names;
    std::wstring document = L"<EventProperties>";
    for (const std::wstring& property : properties) {
        const size_t equals = property.find(L'=');
        if (equals == property.npos)
            throw UsageError{L"the property \"" + property + L"\" is not of the form NAME=VALUE"};
        const std::wstring name = property.substr(0, equals);
        if (name.empty())
            throw UsageError{L"the property \"" + property + L"\" has no name"};
        for (const wchar_t letter : property)
            if (!IS_HIGH_SURROGATE(letter) && !IS_LOW_SURROGATE(letter) && !vorna::IsXmlCharacter(letter))
                throw UsageError{L"the property \"" + name +
                                 L"\" holds a character that no document can hold, number " +
                                 std::to_wstring(static_cast<unsigned>(letter))};
        if (!names.insert(name).second)
            throw UsageError{L"the property \"" + name + L"\" is given twice"};
        document += L"<Property Name=\"" + vorna::EscapeXml(name, vorna::XmlContext::Attribute) + L"\">" +
                    vorna::EscapeXml(property.substr(equals + 1), vorna::XmlContext::Attribute) + L"</Property>";
    }
    return document + L"</EventProperties>";
}

long RaiseEvent(const std::wstring& name, const std::wstring& properties, const std::wstring& payloadFile) {
    std::wstring action = L"raising " + name;
    std::wstring payload;
    if (!payloadFile.empty()) {
        payload = ReadXml(payloadFile);
        action += L" with the payload " + payloadFile;
    }
    const auto manager = Create<IZEBEventManager>(vorna::PROGID_EVENT_MANAGER);
    long subscriptions = 0;
    const HRESULT result = manager->Raise(vorna::bstr(name).get(), vorna::bstr(properties).get(),
                                          vorna::bstr(payload).get(), &subscriptions);
    if (FAILED(result))
        throw Refusal(result, std::move(action), subscriptions, payload.size());
    return subscriptions;
}

} // namespace vornactl
