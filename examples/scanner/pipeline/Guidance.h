#pragma once

#include <QString>

#include <optional>

namespace scanner {

/// Advice for the person holding the camera.
enum class Advice { None, NoDocument, MoveCloser, HoldStill };

/// The advice's alert text ("No document found", "Move closer", "Hold
/// still"); empty for None.
QString adviceText(Advice advice);

/// Decides which advice to give as the picture changes, and when: an advice
/// is announced once when it begins to apply and not again while it stands;
/// it may come back after something else applied in between, but not
/// sooner than a pause after it was last given.
class Guidance {
public:
    struct Situation {
        bool outline = false;       ///< an outline is shown
        double coverage = 0;        ///< its area over the frame's
        double shownSeconds = 0;    ///< how long it has been shown
        double steadySeconds = 0;   ///< how long it has stayed put
        double missingSeconds = 0;  ///< how long there has been no outline
    };

    /// The advice that applies to situation (for a status line).
    static Advice adviceFor(const Situation& situation);
    /// The advice to announce now, if any.
    std::optional<Advice> update(const Situation& situation, double now);

private:
    Advice _standing = Advice::None;
    Advice _lastGiven = Advice::None;
    double _lastGivenAt = -1e9;
};

}  // namespace scanner
