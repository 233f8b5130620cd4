#pragma once

#include <QImage>

/// A document-like test card: a portrait page with a heading, text lines,
/// colour patches and an "up" arrow, lying on its side as a phone held the
/// wrong way would capture it. One turn to the right sets it upright.
QImage renderSampleCard();
