// One subscription, as its document (root Archive) describes it.
//
// The constructor parses the document; the first failure ends the parsing and determines the status and the error text.
// One thread at a time. The constructor and SetAging do not throw; SetClientCookie throws std::bad_alloc.
#pragma once

#include "common/time/DateTime.h"
#include "src/KROEventInfo.h"
#include "src/TimerInfo.h"
#include "src/XDMEventInfo.h"

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vorna {

class XmlAccessor;

enum class EventType { Timer, KROEvent, XDMEvent };

class SubscriptionInfo {
  public:
    // Parses the document. If the calling thread is in no apartment, it enters the multithreaded apartment and stays
    // there.
    explicit SubscriptionInfo(std::wstring_view text);
    SubscriptionInfo(SubscriptionInfo&&) = default;
    SubscriptionInfo& operator=(SubscriptionInfo&&) = default;
    SubscriptionInfo(const SubscriptionInfo&) = delete;
    SubscriptionInfo& operator=(const SubscriptionInfo&) = delete;

    // S_OK, or the result and the text of the first failure. After a failure the fields have the values that were read
    // before it; the archive ID is empty unless it was valid.
    HRESULT Status() const { return status_; }
    const std::wstring& ErrorText() const { return errorText_; }

    bool Collect() const { return collect_; }
    // How long a snapshot is kept until it is read for the first time (65535 years: without limit), and after each
    // reading.
    const Duration& LifetimeBeforeRead() const { return lifetimeBeforeRead_; }
    const Duration& LifetimeAfterRead() const { return lifetimeAfterRead_; }
    // In kilobytes or in files.
    std::uint32_t MaxStorageSize() const { return maxStorageSize_; }
    bool SizeInKilobytes() const { return sizeInKilobytes_; }

    vorna::EventType EventType() const {
        return xdmEvent_ ? EventType::XDMEvent : kroEvent_ ? EventType::KROEvent : EventType::Timer;
    }
    // The settings of the event type; the other two are null. Valid as long as this object exists.
    const TimerInfo* TimerEvent() const { return timerEvent_.get(); }
    const KROEventInfo* KROEvent() const { return kroEvent_.get(); }
    const XDMEventInfo* XDMEvent() const { return xdmEvent_.get(); }

    const std::wstring& ArchiveID() const { return archiveId_; }
    const std::wstring& ClientCookie() const { return clientCookie_; }
    const Duration& Aging() const { return aging_; }
    // The document as it was passed to the constructor, or as SetAging has changed it.
    const std::wstring& SubscriptionText() const { return text_; }

    // The cookie that the platform returns with every callback; also set in the settings of the event type.
    void SetClientCookie(std::wstring_view cookie);

    // Writes the aging into the text; its element is added if it is missing. A failure (0x8000012D; 0x80004005 for an
    // exception) also sets the status and the error text, and leaves text and aging unchanged.
    [[nodiscard]] HRESULT SetAging();
    // The same with a new aging, which is also set in the settings of the event type.
    [[nodiscard]] HRESULT SetAging(const Duration& aging);

  private:
    // The results and error texts for invalid data sources; they differ between event types.
    struct SourceFailures {
        HRESULT xpath;
        const wchar_t* xpathText;
        HRESULT prefixes;
        const wchar_t* prefixesText;
        HRESULT none;
        const wchar_t* noneText;
    };

    template <typename Work>
    HRESULT Guarded(Work work);
    HRESULT Parse();
    HRESULT SetCommonSubscriptionInfo(XmlAccessor& document);
    HRESULT SetArchiveID(XmlAccessor& document);
    HRESULT SetStorageSize(XmlAccessor& document);
    HRESULT SetEvent(XmlAccessor& document);
    HRESULT SetDataSource(XmlAccessor& document, const std::wstring& parent, DataSource& source,
                          const SourceFailures& failures);
    HRESULT SetSchedulingInfo(XmlAccessor& document);
    HRESULT SetKROEventInfo(XmlAccessor& document);
    HRESULT SetKROFilterList(XmlAccessor& document);
    HRESULT SetXDMEventInfo(XmlAccessor& document);
    HRESULT SetXDMEventsList(XmlAccessor& document);

    HRESULT WriteAging(const Duration& aging, std::wstring& text);
    HRESULT Fail(HRESULT status, std::wstring_view errorText);
    HRESULT FailUnexpectedly() noexcept;

    HRESULT status_ = S_OK;
    bool collect_ = false;
    Duration lifetimeBeforeRead_{.years = 65535};
    Duration lifetimeAfterRead_{.days = 1};
    std::uint32_t maxStorageSize_ = 6;
    bool sizeInKilobytes_ = false;
    std::unique_ptr<TimerInfo> timerEvent_;
    std::unique_ptr<KROEventInfo> kroEvent_;
    std::unique_ptr<XDMEventInfo> xdmEvent_;
    std::wstring errorText_;
    std::wstring archiveId_;
    std::wstring clientCookie_;
    Duration aging_{.years = 1};
    std::wstring text_;
};

} // namespace vorna
