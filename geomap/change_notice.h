// TChangeNotice: the one "changed" notification that a calibration or a landmark store raises to the
// single listener its owner registers. Change flows one way: the owner pushes facts down (the image size
// into the calibration) and hears back only through this notice; nothing below calls up for state.
//
// The notice carries a bit set of what changed (the raising class names its bits). Inside a batch the
// bits are gathered and raised once when the outermost batch ends, so an operation built from others
// (a point edit that refits and recomputes the corners) still notifies exactly once.
//
// A listener belongs to the owner it was registered by: copying the object that holds a notice never
// copies its listener (a copy starts without one, an assignment keeps the target's own), so a copy cannot
// call into the owner of the original.
#pragma once

#include <exception>
#include <functional>
#include <utility>

namespace qv {

class TChangeNotice {
public:
    using TListener = std::function<void(unsigned What)>;

    TChangeNotice() = default;
    TChangeNotice(const TChangeNotice&) noexcept {}
    TChangeNotice& operator=(const TChangeNotice&) noexcept { return *this; }
    TChangeNotice(TChangeNotice&&) noexcept {}
    TChangeNotice& operator=(TChangeNotice&&) noexcept { return *this; }

    void SetListener(TListener Listener) { FListener = std::move(Listener); }
    bool HasListener() const { return static_cast<bool>(FListener); }
    // For an owning class whose move deliberately takes the listener along.
    void SwapListener(TChangeNotice& Other) noexcept { std::swap(FListener, Other.FListener); }

    // What (non-zero) changed: raised at once outside a batch, at the end of the outermost batch inside one.
    void Changed(unsigned What)
    {
        FPending |= What;
        if (FDepth == 0)
            Flush();
    }

    // Gathers the notices of a scope into one. Also when the scope is left by an exception: the object
    // may have changed before it, and the owner's view of it must follow; a listener that throws then is
    // not heard (an exception is already on its way).
    class TBatch {
    public:
        explicit TBatch(TChangeNotice& Notice) : FNotice(Notice), FUncaught(std::uncaught_exceptions())
        {
            ++FNotice.FDepth;
        }
        ~TBatch() noexcept(false)
        {
            if (--FNotice.FDepth > 0)
                return;
            if (std::uncaught_exceptions() > FUncaught) {
                try {
                    FNotice.Flush();
                } catch (...) {
                }
            } else {
                FNotice.Flush();
            }
        }
        TBatch(const TBatch&) = delete;
        TBatch& operator=(const TBatch&) = delete;

    private:
        TChangeNotice& FNotice;
        int FUncaught;
    };

private:
    void Flush()
    {
        const unsigned what = std::exchange(FPending, 0u);
        if (what != 0 && FListener)
            FListener(what);
    }

    TListener FListener;
    unsigned FPending = 0;
    int FDepth = 0;
};

}  // namespace qv
