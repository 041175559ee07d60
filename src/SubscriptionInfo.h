// One subscription, as its document (root Archive) describes it.
//
// The document is parsed once, at construction; the first failure stops the parse and stays as status and error text.
// One thread at a time. Neither construction nor SetAging throws; SetClientCookie throws std::bad_alloc.
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
    // Parses the document. The calling thread joins the multithreaded apartment if it is in none.
    explicit SubscriptionInfo(std::wstring_view text);
    SubscriptionInfo(SubscriptionInfo&&) = default;
    SubscriptionInfo& operator=(SubscriptionInfo&&) = default;
    SubscriptionInfo(const SubscriptionInfo&) = delete;
    SubscriptionInfo& operator=(const SubscriptionInfo&) = delete;

    // S_OK, or the first failure and what was wrong. After a failure the fields hold what was read before it; the
    // archive ID is empty unless it was accepted.
    HRESULT Status() const { return status_; }
    const std::wstring& ErrorText() const { return errorText_; }

    bool Collect() const { return collect_; }
    // How long a snapshot is kept that nobody has read (65535 years: without limit), and once it was read.
    const Duration& LifetimeBeforeRead() const { return lifetimeBeforeRead_; }
    const Duration& LifetimeAfterRead() const { return lifetimeAfterRead_; }
    // In kilobytes or in files.
    std::uint32_t MaxStorageSize() const { return maxStorageSize_; }
    bool SizeInKilobytes() const { return sizeInKilobytes_; }

    vorna::EventType EventType() const { return eventType_; }
    // The part of the event type; the others are null. They live as long as this object.
    const TimerInfo* TimerEvent() const { return timerEvent_.get(); }
    const KROEventInfo* KROEvent() const { return kroEvent_.get(); }
    const XDMEventInfo* XDMEvent() const { return xdmEvent_.get(); }

    const std::wstring& ArchiveID() const { return archiveId_; }
    const std::wstring& ClientCookie() const { return clientCookie_; }
    const Duration& Aging() const { return aging_; }
    // The document as it was given, or as SetAging has rewritten it.
    const std::wstring& SubscriptionText() const { return text_; }

    // The cookie that the platform hands back on every callback; the event's part gets it too.
    void SetClientCookie(std::wstring_view cookie);

    // Writes the aging into the text, where its element may be missing. On failure 0x8000012D, status and error text
    // say so, and text and aging are as before.
    [[nodiscard]] HRESULT SetAging();
    // The same with another aging, which the event's part gets too.
    [[nodiscard]] HRESULT SetAging(const Duration& aging);

  private:
    // The statuses and texts with which the kinds of event refuse a source.
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
    vorna::EventType eventType_ = vorna::EventType::Timer;
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
