// The snapshot index of a subscription as text: <SnapShots> with one SnapShot element for each snapshot, in order of
// capture. A subscription without a capture has no index; its text is empty.
//
// Every operation parses the text anew. Results: S_OK; 0x8000012D the text is not well-formed; 0x80000151 no XML
// accessor; E_FAIL. On failure the text is as before, and the log says what failed.
#pragma once

#include "subscription/archive/SnapShot.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

class SnapShotIndex {
  public:
    // What to do with a snapshot whose Id has an entry already.
    enum class Known { Refresh, Refuse };

    SnapShotIndex() = default;
    explicit SnapShotIndex(std::wstring text) : text_(std::move(text)) {}

    const std::wstring& Text() const { return text_; }
    bool empty() const { return text_.empty(); }

    // Adds an entry, or brings the one of the same Id up to date; 0x800700B7 (ERROR_ALREADY_EXISTS) if that is refused.
    [[nodiscard]] HRESULT Add(const SnapShot& snapShot, Known known);
    // Brings the entries of many snapshots up to date in one pass; entries that are gone stay gone.
    [[nodiscard]] HRESULT Refresh(std::span<const SnapShot> snapShots);
    [[nodiscard]] HRESULT Remove(std::wstring_view id);

    [[nodiscard]] HRESULT Read(std::vector<SnapShot>& snapShots) const;
    // The Id of the first entry. stream: what the log calls the index.
    [[nodiscard]] HRESULT FindOldest(std::wstring_view stream, std::wstring& id) const;

  private:
    std::wstring text_;
};

} // namespace vorna
