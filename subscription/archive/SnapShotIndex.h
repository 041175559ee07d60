// The snapshot index of a subscription as text: <SnapShots> with one SnapShot element for each snapshot, in order of
// capture. A subscription without a capture has no index; its text is empty.
//
// Every operation parses the text again. Results: S_OK; 0x8000012D the text is not well-formed; 0x80000151 no XML
// accessor; E_FAIL. On failure the log has the reason, and the text must not be used any more.
#pragma once

#include "subscription/archive/SnapShot.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

class SnapShotIndex {
  public:
    // The Id of a capture whose second already has an entry.
    enum class Placement {
        // The same Id: the newer capture replaces the older one.
        SameSecond,
        // The first later second without an entry, so that both captures are kept.
        FreeSecond,
    };
    // The greatest distance of such an Id from the time of its capture, in seconds.
    static constexpr int FURTHEST_SECOND = 600;

    SnapShotIndex() = default;
    explicit SnapShotIndex(std::wstring text) : text_(std::move(text)) {}

    const std::wstring& Text() const { return text_; }
    bool empty() const { return text_.empty(); }

    // Adds an entry, or updates the one with the same Id. With FreeSecond, snapShot gets the Id of its entry;
    // 0x800700AA (ERROR_BUSY) if no second within FURTHEST_SECOND is free. added: whether the entry is new.
    [[nodiscard]] HRESULT Add(SnapShot& snapShot, Placement placement, bool& added);
    // Updates the entries of several snapshots in one pass. Snapshots without an entry are ignored.
    [[nodiscard]] HRESULT Refresh(std::span<const SnapShot> snapShots);
    [[nodiscard]] HRESULT Remove(std::wstring_view id);
    // The same for many, in one pass.
    [[nodiscard]] HRESULT Remove(std::span<const std::wstring> ids);

    [[nodiscard]] HRESULT Read(std::vector<SnapShot>& snapShots) const;
    [[nodiscard]] HRESULT ReadIds(std::vector<std::wstring>& ids) const;
    // The Id of the first entry. stream: what the log calls the index.
    [[nodiscard]] HRESULT FindOldest(std::wstring_view stream, std::wstring& id) const;

  private:
    template <typename Change>
    HRESULT Rewrite(Change change);

    std::wstring text_;
};

} // namespace vorna
