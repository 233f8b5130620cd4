#include "platform/ui/Font.h"

#include <QFontDatabase>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace platform {
namespace {

struct StyleWord {
    const char* word;
    QFont::Weight weight;
};

// Longest words first, so "UltraLight" is not read as "Light".
constexpr StyleWord kStyleWords[] = {
    {"ultralight", QFont::ExtraLight},
    {"extralight", QFont::ExtraLight},
    {"semibold", QFont::DemiBold},
    {"demibold", QFont::DemiBold},
    {"regular", QFont::Normal},
    {"medium", QFont::Medium},
    {"heavy", QFont::ExtraBold},
    {"black", QFont::Black},
    {"light", QFont::Light},
    {"roman", QFont::Normal},
    {"thin", QFont::Thin},
    {"bold", QFont::Bold},
};

int pixelSize(double size) {
    return std::max(1, static_cast<int>(std::lround(size)));
}

QString withoutSpaces(QString text) {
    return text.remove(QLatin1Char(' ')).toLower();
}

// Installed faces that stand in for the platform's families when those are
// not installed, chosen for close widths and a full range of weights (Thin
// and Light included): Roboto (Debian's fonts-roboto-unhinted) sets the
// button titles in the same room as the platform's faces. Keys are family
// names without spaces, lower case; "" is the system font.
struct Substitute {
    const char* family;
    const char* standIn;
};
constexpr Substitute kSubstitutes[] = {
    {"helveticaneue", "Roboto"}, {"helvetica", "Roboto"}, {"sfuitext", "Roboto"},
    {"sfuidisplay", "Roboto"},   {"", "Roboto"},
};

// The installed family whose name equals the wanted one ignoring spaces and
// case ("HelveticaNeue" finds "Helvetica Neue"); empty when there is none.
QString installedFamily(const QString& wanted) {
    const QString key = withoutSpaces(wanted);
    const QStringList families = QFontDatabase::families();
    const auto it = std::find_if(families.begin(), families.end(), [&](const QString& family) {
        return withoutSpaces(family) == key;
    });
    return it == families.end() ? QString() : *it;
}

// The family to draw wanted with: itself when installed, else its installed
// stand-in; empty when neither is installed.
QString familyFor(const QString& wanted) {
    if (!wanted.isEmpty()) {
        if (QString family = installedFamily(wanted); !family.isEmpty()) {
            return family;
        }
    }
    const QString key = withoutSpaces(wanted);
    for (const Substitute& substitute : kSubstitutes) {
        if (key == QLatin1String(substitute.family)) {
            return installedFamily(QLatin1String(substitute.standIn));
        }
    }
    return {};
}

QFont baseFont(double size) {
    QFont font;
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(pixelSize(size));
    if (const QString family = familyFor({}); !family.isEmpty()) {
        font.setFamily(family);
    }
    return font;
}

}  // namespace

QFont fontWithName(const QString& name, double size) {
    const qsizetype dash = name.lastIndexOf(QLatin1Char('-'));
    const QString familyPart = dash < 0 ? name : name.left(dash);
    QString style = dash < 0 ? QString() : name.mid(dash + 1).toLower();

    QFont font = baseFont(size);
    if (style.endsWith(QLatin1String("italic")) || style.endsWith(QLatin1String("oblique"))) {
        font.setItalic(true);
        style.chop(style.endsWith(QLatin1String("italic")) ? 6 : 7);
    }
    for (const StyleWord& word : kStyleWords) {
        if (style == QLatin1String(word.word)) {
            font.setWeight(word.weight);
            break;
        }
    }
    if (const QString family = familyFor(familyPart); !family.isEmpty()) {
        font.setFamily(family);
    }
    return font;
}

QFont systemFont(double size) {
    return baseFont(size);
}

QFont boldSystemFont(double size) {
    QFont font = baseFont(size);
    font.setWeight(QFont::Bold);
    return font;
}

}  // namespace platform
