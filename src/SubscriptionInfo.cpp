#include "src/SubscriptionInfo.h"

#include "common/com/result_error.h"
#include "common/log/CatchAll.h"
#include "common/services/XmlAccessor.h"

#include <objbase.h>

#include <algorithm>
#include <cstdio>
#include <limits>

namespace vorna {

namespace {

constexpr size_t LONGEST_ARCHIVE_ID = 256;
constexpr size_t LONGEST_EXCERPT = 64;

// The thread stays in the apartment, because the caller goes on to use other components.
void JoinMultithreadedApartment() {
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    HRESULT apartment = CoGetApartmentType(&type, &qualifier);
    if (apartment == CO_E_NOTINITIALIZED || qualifier == APTTYPEQUALIFIER_IMPLICIT_MTA)
        (void)CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

// Recognises non-markup of any size without parsing it.
bool LooksLikeMarkup(std::wstring_view text) {
    size_t first = text.find_first_not_of(L"\xFEFF \t\r\n");
    return first != std::wstring_view::npos && text[first] == L'<';
}

// How often a value or an element occurs in a document.
enum class Occurs { Never, Once, Repeatedly };

// Several nodes are returned joined by the delimiter, which no XML text can contain. Throws if a query failed: that
// does not mean that there is no such node, and a default in place of a limit would delete data.
Occurs OccurrenceOf(XmlAccessor& document, HRESULT queried, const std::wstring& result) {
    throw_if_failed(queried);
    if (result.empty())
        return Occurs::Never;
    std::wstring delimiter;
    throw_if_failed(document.GetDelimiter(delimiter));
    const bool joined = !delimiter.empty() && result.find(delimiter) != std::wstring::npos;
    return joined ? Occurs::Repeatedly : Occurs::Once;
}

// An empty value occurs never.
Occurs ReadValue(XmlAccessor& document, std::wstring_view xpath, std::wstring& value) {
    const HRESULT queried = document.QueryText(xpath, value);
    return OccurrenceOf(document, queried, value);
}

// An element counts even without content.
Occurs FindElement(XmlAccessor& document, std::wstring_view xpath) {
    std::wstring markup;
    const HRESULT queried = document.QueryMarkup(xpath, markup);
    return OccurrenceOf(document, queried, markup);
}

// False if the value is missing or occurs repeatedly.
bool ReadMandatory(XmlAccessor& document, std::wstring_view xpath, std::wstring& value) {
    return ReadValue(document, xpath, value) == Occurs::Once;
}

// False if the value occurs repeatedly.
bool ReadOptional(XmlAccessor& document, std::wstring_view xpath, std::wstring& value) {
    return ReadValue(document, xpath, value) != Occurs::Repeatedly;
}

// True also if the value is missing; duration then keeps its default.
bool ReadOptionalDuration(XmlAccessor& document, std::wstring_view xpath, Duration& duration) {
    std::wstring value;
    const Occurs occurs = ReadValue(document, xpath, value);
    if (occurs == Occurs::Never)
        return true;
    Duration parsed;
    if (occurs == Occurs::Repeatedly || !ParseDuration(value, parsed))
        return false;
    duration = parsed;
    return true;
}

// Accepts digits only; false if the value is greater than largest.
bool ParseDigits(std::wstring_view text, std::uint32_t largest, std::uint32_t& value) {
    if (text.empty())
        return false;
    std::uint64_t sum = 0;
    for (wchar_t character : text) {
        if (character < L'0' || character > L'9')
            return false;
        sum = sum * 10 + static_cast<std::uint64_t>(character - L'0');
        if (sum > largest)
            return false;
    }
    value = static_cast<std::uint32_t>(sum);
    return true;
}

bool IsControl(wchar_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

// The beginning of a value for a message; control characters are replaced.
std::wstring Excerpt(std::wstring_view value) {
    size_t length = std::min(value.size(), LONGEST_EXCERPT);
    if (length < value.size() && IS_HIGH_SURROGATE(value[length - 1]))
        --length;
    std::wstring excerpt(value.substr(0, length));
    std::replace_if(excerpt.begin(), excerpt.end(), IsControl, L'?');
    return excerpt;
}

// The reason why an archive ID is not valid; empty if it is valid. IDs become part of XPaths and attributes without
// escaping.
std::wstring ArchiveIDFault(std::wstring_view id) {
    if (id.size() > LONGEST_ARCHIVE_ID)
        return L"Subscription Info Error : Invalid Archieve ID. It has " + std::to_wstring(id.size()) +
               L" characters, more than 256, and begins: " + Excerpt(id);
    for (wchar_t character : id) {
        bool control = IsControl(character);
        if (!control && std::wstring_view(L"\"'<>&\\/[]=").find(character) == std::wstring_view::npos)
            continue;
        wchar_t code[16];
        std::swprintf(code, std::size(code), L"U+%04X", static_cast<unsigned>(character));
        std::wstring named = control ? code : std::wstring(code) + L" (" + character + L")";
        return L"Subscription Info Error : Invalid Archieve ID. The character " + named + L" is not allowed in: " +
               Excerpt(id);
    }
    return {};
}

// Runs the work on each node that the path selects, as a separate document. S_FALSE: the path selects nothing.
template <typename Work>
HRESULT ForEachNode(XmlAccessor& document, std::wstring_view xpath, Work&& work) {
    std::vector<std::wstring> nodes;
    if (HRESULT result = document.QueryMarkups(xpath, nodes); result != S_OK)
        return result;
    if (nodes.empty())
        return S_FALSE;
    XmlAccessor piece;
    HRESULT result = piece.Create();
    for (const std::wstring& node : nodes) {
        if (result == S_OK)
            result = piece.Load(node) == S_OK ? work(piece) : E_FAIL;
        if (result != S_OK)
            return FAILED(result) ? result : E_FAIL;
    }
    return S_OK;
}

} // namespace

SubscriptionInfo::SubscriptionInfo(std::wstring_view text) {
    Guarded([&] {
        text_ = text;
        return Parse();
    });
}

// Runs work; an exception sets the status and the error text.
template <typename Work>
HRESULT SubscriptionInfo::Guarded(Work work) {
    return CatchAll([&] { return FailUnexpectedly(); }, work);
}

HRESULT SubscriptionInfo::Parse() {
    JoinMultithreadedApartment();
    XmlAccessor document;
    if (document.Create() != S_OK)
        return Fail(RESULT_XML_MALFORMED, L"Create Instance of XMLSIMPLEACCESSOR failed");
    if (!LooksLikeMarkup(text_) || document.Load(text_) != S_OK) {
        VORNA_LOG(LOG_TRACE, "SubscriptionInfo XML Load failed : Not in proper format");
        return Fail(RESULT_XML_MALFORMED, L"XML not properly formatted");
    }
    if (Guarded([&] { return SetCommonSubscriptionInfo(document); }) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to set subscription Info. SetCommonSubscriptionInfo returned error status.");
        return status_;
    }
    return SetEvent(document);
}

HRESULT SubscriptionInfo::SetEvent(XmlAccessor& document) {
    static constexpr struct {
        const wchar_t* xpath;
        HRESULT (SubscriptionInfo::*set)(XmlAccessor& document);
    } EVENTS[] = {
        {L"/Archive/Timer", &SubscriptionInfo::SetSchedulingInfo},
        {L"/Archive/KROEvent", &SubscriptionInfo::SetKROEventInfo},
        {L"/Archive/XDMEvent", &SubscriptionInfo::SetXDMEventInfo},
    };
    for (const auto& event : EVENTS) {
        std::wstring value;
        const Occurs occurs = ReadValue(document, event.xpath, value);
        if (occurs == Occurs::Never)
            continue;
        if (occurs == Occurs::Repeatedly)
            break;
        return (this->*event.set)(document);
    }
    return Fail(RESULT_EVENT_TYPE, L"Invalid event type");
}

HRESULT SubscriptionInfo::SetCommonSubscriptionInfo(XmlAccessor& document) {
    const ScopeTrace trace("SubscriptionInfo::SetCommonSubscriptionInfo");
    if (HRESULT result = SetArchiveID(document); result != S_OK)
        return result;
    std::wstring value;
    if (ReadValue(document, L"/Archive/Collect", value) == Occurs::Never)
        return Fail(RESULT_COLLECT, L"Subscription Info Error : Data Collect is mandatory field");
    if (value != L"ON" && value != L"OFF") {
        VORNA_LOG(LOG_TRACE, "FAILED:Some  value other than \"On\" or \"Off\" is found");
        return Fail(RESULT_COLLECT,
                    L"Subscription Info Error - Some  value other than \"On\" or \"Off\" for collect is found");
    }
    collect_ = value == L"ON";
    if (!ReadOptionalDuration(document, L"/Archive/Aging", aging_)) {
        VORNA_LOG(LOG_TRACE, "FAILED:Invalid Aging duration found");
        return Fail(RESULT_AGING, L"Subscription Info Error: Invalid Aging duration found");
    }
    if (!ReadOptionalDuration(document, L"/Archive/DataManagement/LifetimeBeforeRead", lifetimeBeforeRead_))
        return Fail(RESULT_LIFETIME_BEFORE_READ, L"Subscription Info Error: Invalid  duration for LifeTimeBefore Read");
    if (!ReadOptionalDuration(document, L"/Archive/DataManagement/LifetimeAfterRead", lifetimeAfterRead_))
        return Fail(RESULT_LIFETIME_AFTER_READ, L"Subscription Info Error: Invalid  duration for LifeTimeAfter Read");
    return SetStorageSize(document);
}

HRESULT SubscriptionInfo::SetArchiveID(XmlAccessor& document) {
    std::wstring id;
    if (!ReadMandatory(document, L"/Archive/@ID", id) || id.find_first_not_of(L' ') == id.npos)
        return Fail(RESULT_ARCHIVE_ID, L"Subscription Info Error : Invalid Archieve ID");
    if (std::wstring fault = ArchiveIDFault(id); !fault.empty())
        return Fail(RESULT_ARCHIVE_ID, fault);
    archiveId_ = std::move(id);
    return S_OK;
}

HRESULT SubscriptionInfo::SetStorageSize(XmlAccessor& document) {
    std::wstring size;
    if (ReadValue(document, L"/Archive/DataManagement/MaxStorageSize", size) == Occurs::Never)
        return S_OK;
    std::wstring units;
    if (!ReadMandatory(document, L"/Archive/DataManagement/MaxStorageSize/@Units", units) ||
        (units != L"KB" && units != L"NUMFILES"))
        return Fail(RESULT_STORAGE_UNITS, L"Subscription Info Error: Invalid  units for MaxStorageSize");
    sizeInKilobytes_ = units == L"KB";
    if (!ParseDigits(size, std::numeric_limits<std::uint32_t>::max(), maxStorageSize_))
        return Fail(RESULT_STORAGE_SIZE, L"Subscription Info Error: Invalid  value for MaxStorageSize");
    return S_OK;
}

// Reads the data source of the event with the path parent.
HRESULT SubscriptionInfo::SetDataSource(XmlAccessor& document, const std::wstring& parent, DataSource& source,
                                        const SourceFailures& failures) {
    const Occurs dataModel = FindElement(document, parent + L"/XMLDataModel");
    if (dataModel != Occurs::Never) {
        if (dataModel == Occurs::Repeatedly || !ReadMandatory(document, parent + L"/XMLDataModel/XPath", source.xpath))
            return Fail(failures.xpath, failures.xpathText);
        if (!ReadMandatory(document, parent + L"/XMLDataModel/XDMPrefixes", source.prefixes))
            return Fail(failures.prefixes, failures.prefixesText);
        return S_OK;
    }
    source.kind = DataSourceKind::EventPayload;
    if (FindElement(document, parent + L"/EventPayload") != Occurs::Once ||
        !ReadOptional(document, parent + L"/EventPayload/XPath", source.xpath) ||
        !ReadOptional(document, parent + L"/EventPayload/TransformFile", source.transformFile) ||
        !ReadOptional(document, parent + L"/EventPayload/XDMPrefixes", source.prefixes))
        return Fail(failures.none, failures.noneText);
    return S_OK;
}

HRESULT SubscriptionInfo::SetSchedulingInfo(XmlAccessor& document) {
    const ScopeTrace trace("SubscriptionInfo::SetSchedulingInfo");
    timerEvent_ = std::make_unique<TimerInfo>();
    if (FindElement(document, L"/Archive/Timer/XMLDataModel") != Occurs::Once ||
        !ReadMandatory(document, L"/Archive/Timer/XMLDataModel/XPath", timerEvent_->source.xpath))
        return Fail(RESULT_DATA_MODEL, L"Subscription Info Error : Invalid Timer Event XDM XPath");
    if (!ReadMandatory(document, L"/Archive/Timer/XMLDataModel/XDMPrefixes", timerEvent_->source.prefixes))
        return Fail(RESULT_DATA_MODEL, L"Subscription Info Error : Invalid Timer Event XDM XDMPRefixes");
    std::wstring value;
    const Occurs frequency = ReadValue(document, L"/Archive/Timer/Frequency", value);
    if (frequency == Occurs::Never)
        return Fail(RESULT_TIMER_FREQUENCY,
                    L"Subscription Info Error : No frequency present in subscription info for timer subscription");
    if (frequency == Occurs::Repeatedly || !ParseDuration(value, timerEvent_->frequency))
        return Fail(
            RESULT_TIMER_FREQUENCY,
            L"Subscription Info Error : Invalid notification frequency present in subscription info for timer subscription");
    if (ReadValue(document, L"/Archive/Timer/Retries", value) != Occurs::Never) {
        std::uint32_t retries = 0;
        if (!ParseDigits(value, std::numeric_limits<std::int32_t>::max(), retries))
            return Fail(RESULT_TIMER_RETRIES,
                        L"Subscription Info Error : Invalid retry in subscription info for timer subscription");
        timerEvent_->retries = static_cast<std::int32_t>(retries);
    }
    timerEvent_->aging = aging_;
    return S_OK;
}

HRESULT SubscriptionInfo::SetKROEventInfo(XmlAccessor& document) {
    const ScopeTrace trace("SubscriptionInfo::SetKROEventInfo");
    static constexpr SourceFailures FAILURES{
        RESULT_DATA_MODEL,
        L"Subscription Info Error : Invalid KRO Event XDM Path",
        RESULT_DATA_MODEL,
        L"Subscription Info Error : Invalid KRO Event XDM XDMPRefixes",
        RESULT_KRO_ARCHIVE_TYPE,
        L"Subscription Info Error : Invalid archive type in subscription info for KRO Event subscription"};
    kroEvent_ = std::make_unique<KROEventInfo>();
    if (!ReadMandatory(document, L"/Archive/KROEvent/Name", kroEvent_->name))
        return Fail(RESULT_KRO_NAME,
                    L"Subscription Info Error : Invalid KRO Event name in subscription info for KRO Event");
    if (HRESULT result = SetDataSource(document, L"/Archive/KROEvent", kroEvent_->source, FAILURES); result != S_OK)
        return result;
    if (SetKROFilterList(document) != S_OK)
        return Fail(
            RESULT_KRO_FILTERS,
            L"Subscription Info Error : Invalid Filters Subscription Info Error : Invalid archive type in subscription info for KRO Event subscription");
    return S_OK;
}

HRESULT SubscriptionInfo::SetKROFilterList(XmlAccessor& document) {
    const ScopeTrace trace("SubscriptionInfo::SetKROFilterList");
    HRESULT result = ForEachNode(document, L"/Archive/KROEvent/Filter/Property", [this](XmlAccessor& property) {
        EventFilter filter;
        if (!ReadOptional(property, L"//Property/@Name", filter.name) ||
            !ReadOptional(property, L"//Property", filter.value))
            return RESULT_KRO_FILTERS;
        kroEvent_->filters.push_back(std::move(filter));
        return S_OK;
    });
    return SUCCEEDED(result) ? S_OK : RESULT_KRO_FILTERS;
}

HRESULT SubscriptionInfo::SetXDMEventInfo(XmlAccessor& document) {
    const ScopeTrace trace("SubscriptionInfo::SetXDMEventInfo");
    static constexpr SourceFailures FAILURES{
        RESULT_XDM_XPATH,    L"Subscription Info Error: Invalid XDM path specified in XDM event subscription",
        RESULT_XDM_PREFIXES, L"Subscription Info Error: Invalid XDM Prefixes specified in XDM event subscription",
        RESULT_XDM_PAYLOAD,  L"Subscription Info Error: Invalid Event Payload specified in XDM event subscription"};
    xdmEvent_ = std::make_unique<XDMEventInfo>();
    xdmEvent_->duration = aging_;
    if (HRESULT result = SetXDMEventsList(document); result != S_OK)
        return Fail(result, L"Subscription Info Error: Invalid Events specified in XDM event subscription");
    return SetDataSource(document, L"/Archive/XDMEvent", xdmEvent_->source, FAILURES);
}

// 0x8000013E: there are no readable events; 0x8000013F: an event has no XPath, or one of its values occurs repeatedly.
HRESULT SubscriptionInfo::SetXDMEventsList(XmlAccessor& document) {
    const auto read = [this](XmlAccessor& node) {
        DataModelEvent event;
        if (!ReadMandatory(node, L"//Event/XPath", event.xpath) ||
            !ReadOptional(node, L"//Event/Trigger", event.trigger) ||
            !ReadOptional(node, L"//Event/Reset", event.reset))
            return RESULT_XDM_EVENT_XPATH;
        xdmEvent_->events.push_back(std::move(event));
        return S_OK;
    };
    return CatchAll("SubscriptionInfo::SetXDMEventsList", E_FAIL, [&] {
        const HRESULT result = ForEachNode(document, L"/Archive/XDMEvent/Event", read);
        return result == S_OK || result == RESULT_XDM_EVENT_XPATH ? result : RESULT_XDM_EVENTS;
    });
}

void SubscriptionInfo::SetClientCookie(std::wstring_view cookie) {
    clientCookie_ = cookie;
    if (timerEvent_)
        timerEvent_->clientCookie = clientCookie_;
    if (kroEvent_)
        kroEvent_->clientCookie = clientCookie_;
    if (xdmEvent_)
        xdmEvent_->clientCookie = clientCookie_;
}

HRESULT SubscriptionInfo::SetAging() {
    return SetAging(Duration(aging_));
}

HRESULT SubscriptionInfo::SetAging(const Duration& aging) {
    const ScopeTrace trace("SubscriptionInfo::SetAging");
    return Guarded([&]() -> HRESULT {
        std::wstring text;
        if (HRESULT result = WriteAging(aging, text); result != S_OK)
            return result;
        text_ = std::move(text);
        aging_ = aging;
        if (timerEvent_)
            timerEvent_->aging = aging;
        if (xdmEvent_)
            xdmEvent_->duration = aging;
        return S_OK;
    });
}

HRESULT SubscriptionInfo::WriteAging(const Duration& aging, std::wstring& text) {
    JoinMultithreadedApartment();
    XmlAccessor document;
    if (document.Create() != S_OK)
        return Fail(RESULT_XML_MALFORMED, L"Create Instance of XMLSIMPLEACCESSOR failed");
    if (document.Load(text_) != S_OK)
        return Fail(RESULT_XML_MALFORMED, L"Failed to load subscription string:" + text_);
    // FormatDuration returns nothing for a duration of zero, but an empty element would be read as the default of one
    // year.
    std::wstring duration = aging.IsZero() ? L"P0Y0M0DT0H0M0S" : FormatDuration(aging);
    std::wstring markup = L"<Aging>" + duration + L"</Aging>";
    HRESULT result = FindElement(document, L"/Archive/Aging") != Occurs::Never
                         ? document.Set(L"/Archive/Aging", markup, XmlChange::Replace)
                         : document.Set(L"/Archive", markup, XmlChange::Append);
    if (result != S_OK)
        return Fail(RESULT_XML_MALFORMED, L"Failed to set aging to subscription string");
    if (document.QueryMarkup(L"/Archive", text) != S_OK)
        return Fail(RESULT_XML_MALFORMED, L"Failed to get modified subscription info to subscription string");
    return S_OK;
}

HRESULT SubscriptionInfo::Fail(HRESULT status, std::wstring_view errorText) {
    status_ = status;
    errorText_ = errorText;
    return status;
}

HRESULT SubscriptionInfo::FailUnexpectedly() noexcept {
    status_ = E_FAIL;
    try {
        errorText_ = L"Unknown Exception Occured";
    } catch (...) {
        // There is no memory for the text, so only the status is set.
        errorText_.clear();
    }
    return E_FAIL;
}

} // namespace vorna
