#include "platform/layout/VisualFormat.h"

#include "platform/foundation/Value.h"

#include <QSet>
#include <QStringView>

#include <algorithm>
#include <optional>

namespace platform::layout {

namespace {

constexpr double kSiblingSpacing = 8.0;
constexpr double kSuperviewSpacing = 20.0;

bool isIdentifierStart(QChar c) {
    return c.isLetter() || c == QLatin1Char('_');
}

bool isIdentifierPart(QChar c) {
    return c.isLetterOrNumber() || c == QLatin1Char('_');
}

bool isHorizontal(LayoutAttribute attribute) {
    switch (attribute) {
        case LayoutAttribute::Left:
        case LayoutAttribute::Right:
        case LayoutAttribute::Leading:
        case LayoutAttribute::Trailing:
        case LayoutAttribute::CenterX:
            return true;
        default:
            return false;
    }
}

/// The edges one orientation lays items along. `reversed` when coordinates
/// grow against the reading order (right to left).
struct Axis {
    bool horizontal;
    LayoutAttribute start;
    LayoutAttribute end;
    LayoutAttribute size;
    bool reversed;
};

/// A recursive-descent parser over one format string. Positions are indices
/// into the string, for the caret of the error message.
class Parser {
public:
    Parser(const QString& format, unsigned options, const QVariantMap& metrics,
           const QStringList& viewNames)
        : _format(format), _options(options), _metrics(metrics), _viewNames(viewNames) {}

    std::vector<FormatConstraint> parse();

private:
    struct Predicate {
        Relation relation = Relation::Equal;
        std::optional<QString> view;
        double constant = 0.0;
        double priority = 1000.0;
    };
    /// What joins two neighbours: nothing (flush), "-" alone, or predicates.
    struct Connection {
        enum class Kind { Flush, Standard, Explicit };
        Kind kind = Kind::Flush;
        std::vector<Predicate> predicates;
    };

    [[noreturn]] void fail(qsizetype position, const QString& problem) const {
        throw VisualFormatError(_format, position, problem);
    }

    bool atEnd() const { return _pos >= _format.size(); }
    bool peek(char c) const { return !atEnd() && _format[_pos] == QLatin1Char(c); }
    bool peekText(const char* text) const {
        return QStringView(_format).mid(_pos).startsWith(QLatin1String(text));
    }
    void skipSpaces() {
        while (!atEnd() && _format[_pos].isSpace()) {
            ++_pos;
        }
    }

    Axis parseOrientation();
    QString parseIdentifier();
    double parseNumber(bool signAllowed);
    double parseNumberOrMetric(bool signAllowed, const QString& what);
    Connection parseConnection();
    QString parseView(std::vector<Predicate>& predicates);
    std::vector<Predicate> parsePredicateList(bool forView);
    Predicate parsePredicate(bool forView);
    std::optional<double> metric(const QString& name, qsizetype position) const;

    void addSpacing(const FormatItem& earlier, const FormatItem& later,
                    const Connection& connection);
    void addSizes(const QString& view, const std::vector<Predicate>& predicates);
    void addAlignments(const std::vector<QString>& views, qsizetype end);

    const QString& _format;
    unsigned _options;
    const QVariantMap& _metrics;
    const QStringList& _viewNames;
    qsizetype _pos = 0;
    Axis _axis{};
    std::vector<FormatConstraint> _constraints;
};

std::vector<FormatConstraint> Parser::parse() {
    _axis = parseOrientation();
    std::vector<QString> views;
    QSet<QString> seen;
    std::optional<FormatItem> previous;
    Connection pending;

    for (;;) {
        skipSpaces();
        if (atEnd()) {
            if (pending.kind != Connection::Kind::Flush) {
                fail(_pos, QStringLiteral("Expected a view or '|' after the spacing"));
            }
            break;
        }
        const qsizetype itemPosition = _pos;
        if (peek('|')) {
            ++_pos;
            if (!previous) {
                previous = FormatItem::superview();
                pending = parseConnection();
                continue;
            }
            if (previous->kind == FormatItem::Kind::Superview) {
                fail(itemPosition, QStringLiteral("Expected a view between the superview's edges"));
            }
            addSpacing(*previous, FormatItem::superview(), pending);
            skipSpaces();
            if (!atEnd()) {
                fail(_pos, QStringLiteral("Expected the end of the format after the closing '|'"));
            }
            break;
        }
        if (!peek('[')) {
            fail(_pos, previous || !peek('-')
                           ? QStringLiteral("Expected a view or '|'")
                           : QStringLiteral("A spacing needs a view or '|' before it"));
        }
        std::vector<Predicate> sizes;
        const qsizetype namePosition = _pos + 1;
        const QString view = parseView(sizes);
        if (seen.contains(view)) {
            fail(namePosition,
                 QStringLiteral("'%1' appears more than once in the format").arg(view));
        }
        seen.insert(view);
        views.push_back(view);
        if (previous) {
            addSpacing(*previous, FormatItem::view(view), pending);
        }
        addSizes(view, sizes);
        previous = FormatItem::view(view);
        pending = parseConnection();
    }
    if (views.empty()) {
        fail(_pos, QStringLiteral("Expected a view"));
    }
    addAlignments(views, _pos);
    return std::move(_constraints);
}

Axis Parser::parseOrientation() {
    bool vertical = false;
    if (peekText("H:") || peekText("V:")) {
        vertical = peek('V');
        _pos += 2;
    } else if (_format.size() > 1 && isIdentifierStart(_format[0]) &&
               _format[1] == QLatin1Char(':')) {
        fail(0, QStringLiteral("Expected 'H:' or 'V:' for the orientation"));
    }
    if (vertical) {
        return {false, LayoutAttribute::Top, LayoutAttribute::Bottom, LayoutAttribute::Height,
                false};
    }
    switch (_options & DirectionMask) {
        case DirectionLeadingToTrailing:
            return {true, LayoutAttribute::Leading, LayoutAttribute::Trailing,
                    LayoutAttribute::Width, false};
        case DirectionLeftToRight:
            return {true, LayoutAttribute::Left, LayoutAttribute::Right, LayoutAttribute::Width,
                    false};
        case DirectionRightToLeft:
            return {true, LayoutAttribute::Right, LayoutAttribute::Left, LayoutAttribute::Width,
                    true};
        default:
            fail(0, QStringLiteral("The options name no known layout direction"));
    }
}

QString Parser::parseIdentifier() {
    const qsizetype start = _pos;
    if (atEnd() || !isIdentifierStart(_format[_pos])) {
        return {};
    }
    while (!atEnd() && isIdentifierPart(_format[_pos])) {
        ++_pos;
    }
    return _format.mid(start, _pos - start);
}

double Parser::parseNumber(bool signAllowed) {
    const qsizetype start = _pos;
    if (signAllowed && (peek('+') || peek('-'))) {
        ++_pos;
    }
    auto digits = [this] {
        qsizetype count = 0;
        while (!atEnd() && _format[_pos].isDigit()) {
            ++_pos;
            ++count;
        }
        return count;
    };
    qsizetype count = digits();
    if (peek('.')) {
        ++_pos;
        count += digits();
    }
    if (count == 0) {
        fail(start, QStringLiteral("Expected a number"));
    }
    if (peek('e') || peek('E')) {
        const qsizetype mark = _pos;
        ++_pos;
        if (peek('+') || peek('-')) {
            ++_pos;
        }
        if (digits() == 0) {
            _pos = mark;  // not an exponent after all
        }
    }
    bool ok = false;
    const double value = QStringView(_format).mid(start, _pos - start).toDouble(&ok);
    if (!ok) {
        fail(start, QStringLiteral("Expected a number"));
    }
    return value;
}

std::optional<double> Parser::metric(const QString& name, qsizetype position) const {
    auto it = _metrics.constFind(name);
    if (it == _metrics.constEnd()) {
        return std::nullopt;
    }
    if (!platform::value::isNumber(*it)) {
        fail(position, QStringLiteral("The metric '%1' is not a number").arg(name));
    }
    return platform::value::doubleValue(*it);
}

double Parser::parseNumberOrMetric(bool signAllowed, const QString& what) {
    const qsizetype start = _pos;
    if (atEnd()) {
        fail(start, QStringLiteral("Expected %1").arg(what));
    }
    const QString name = parseIdentifier();
    if (name.isEmpty()) {
        const QChar c = _format[_pos];
        if (!c.isDigit() && c != QLatin1Char('.') &&
            !(signAllowed && (c == QLatin1Char('+') || c == QLatin1Char('-')))) {
            fail(start, QStringLiteral("Expected %1").arg(what));
        }
        return parseNumber(signAllowed);
    }
    if (auto value = metric(name, start)) {
        return *value;
    }
    fail(start, QStringLiteral("'%1' is not a key in the metrics dictionary").arg(name));
}

Parser::Connection Parser::parseConnection() {
    skipSpaces();
    if (!peek('-')) {
        return {};
    }
    ++_pos;
    skipSpaces();
    if (atEnd() || peek('[') || peek('|')) {
        return {Connection::Kind::Standard, {}};
    }
    Connection connection{Connection::Kind::Explicit, {}};
    if (peek('(')) {
        connection.predicates = parsePredicateList(false);
    } else {
        Predicate predicate;
        predicate.constant = parseNumberOrMetric(false, QStringLiteral("a number or a metric"));
        connection.predicates.push_back(predicate);
    }
    skipSpaces();
    if (!peek('-')) {
        fail(_pos, QStringLiteral("Expected a '-' to end the spacing"));
    }
    ++_pos;
    return connection;
}

QString Parser::parseView(std::vector<Predicate>& predicates) {
    ++_pos;  // '['
    skipSpaces();
    const qsizetype namePosition = _pos;
    const QString name = parseIdentifier();
    if (name.isEmpty()) {
        fail(namePosition, QStringLiteral("Expected a view name"));
    }
    if (!_viewNames.contains(name)) {
        fail(namePosition, QStringLiteral("'%1' is not a key in the views dictionary").arg(name));
    }
    skipSpaces();
    if (peek('(')) {
        predicates = parsePredicateList(true);
        skipSpaces();
    }
    if (!peek(']')) {
        fail(_pos, QStringLiteral("Expected a ']' to close the view"));
    }
    ++_pos;
    return name;
}

std::vector<Parser::Predicate> Parser::parsePredicateList(bool forView) {
    ++_pos;  // '('
    std::vector<Predicate> predicates;
    for (;;) {
        skipSpaces();
        predicates.push_back(parsePredicate(forView));
        skipSpaces();
        if (peek(',')) {
            ++_pos;
        } else if (peek(')')) {
            ++_pos;
            return predicates;
        } else {
            fail(_pos, QStringLiteral("Expected ',' or ')' after a predicate"));
        }
    }
}

Parser::Predicate Parser::parsePredicate(bool forView) {
    Predicate predicate;
    if (peekText("==")) {
        _pos += 2;
    } else if (peekText("<=")) {
        predicate.relation = Relation::LessThanOrEqual;
        _pos += 2;
    } else if (peekText(">=")) {
        predicate.relation = Relation::GreaterThanOrEqual;
        _pos += 2;
    } else if (peek('=') || peek('<') || peek('>')) {
        fail(_pos, QStringLiteral("Expected '==', '<=' or '>='"));
    }
    skipSpaces();

    const qsizetype objectPosition = _pos;
    const QString name = parseIdentifier();
    if (name.isEmpty()) {
        _pos = objectPosition;
        predicate.constant =
            parseNumberOrMetric(true, forView ? QStringLiteral("a number, a metric or a view name")
                                              : QStringLiteral("a number or a metric"));
    } else if (auto value = metric(name, objectPosition)) {
        predicate.constant = *value;
    } else if (forView && _viewNames.contains(name)) {
        predicate.view = name;
    } else if (forView) {
        fail(
            objectPosition,
            QStringLiteral("'%1' is neither a metric nor a key in the views dictionary").arg(name));
    } else {
        fail(objectPosition,
             QStringLiteral("A spacing takes a number or a metric, not '%1'").arg(name));
    }

    skipSpaces();
    if (peek('@')) {
        ++_pos;
        skipSpaces();
        const qsizetype priorityPosition = _pos;
        predicate.priority = parseNumberOrMetric(false, QStringLiteral("a priority"));
        if (predicate.priority <= 0.0 || predicate.priority > 1000.0) {
            fail(priorityPosition, QStringLiteral("A priority must be above 0 and at most 1000"));
        }
    }
    return predicate;
}

void Parser::addSpacing(const FormatItem& earlier, const FormatItem& later,
                        const Connection& connection) {
    const bool toSuperview =
        earlier.kind == FormatItem::Kind::Superview || later.kind == FormatItem::Kind::Superview;
    std::vector<Predicate> predicates = connection.predicates;
    if (connection.kind != Connection::Kind::Explicit) {
        Predicate standard;
        if (connection.kind == Connection::Kind::Standard) {
            standard.constant = toSuperview ? kSuperviewSpacing : kSiblingSpacing;
        }
        predicates.push_back(standard);
    }
    // The superview's edge is on the same side as the view's it is spaced from.
    const LayoutAttribute earlierEdge =
        earlier.kind == FormatItem::Kind::Superview ? _axis.start : _axis.end;
    const LayoutAttribute laterEdge =
        later.kind == FormatItem::Kind::Superview ? _axis.end : _axis.start;
    for (const Predicate& predicate : predicates) {
        FormatConstraint constraint{later,       laterEdge, predicate.relation, earlier,
                                    earlierEdge, 1.0,       predicate.constant, predicate.priority};
        if (_axis.reversed) {
            std::swap(constraint.firstItem, constraint.secondItem);
            std::swap(constraint.firstAttribute, constraint.secondAttribute);
        }
        _constraints.push_back(constraint);
    }
}

void Parser::addSizes(const QString& view, const std::vector<Predicate>& predicates) {
    for (const Predicate& predicate : predicates) {
        FormatConstraint constraint;
        constraint.firstItem = FormatItem::view(view);
        constraint.firstAttribute = _axis.size;
        constraint.relation = predicate.relation;
        if (predicate.view) {
            constraint.secondItem = FormatItem::view(*predicate.view);
            constraint.secondAttribute = _axis.size;
        } else {
            constraint.constant = predicate.constant;
        }
        constraint.priority = predicate.priority;
        _constraints.push_back(constraint);
    }
}

void Parser::addAlignments(const std::vector<QString>& views, qsizetype end) {
    const unsigned alignment = _options & AlignmentMask;
    for (int bit = 1; bit < 16; ++bit) {
        if ((alignment & (1U << bit)) == 0) {
            continue;
        }
        const auto attribute = static_cast<LayoutAttribute>(bit);
        if (bit > static_cast<int>(LayoutAttribute::CenterY) ||
            attribute == LayoutAttribute::Width || attribute == LayoutAttribute::Height) {
            fail(end, QStringLiteral("The options ask for an alignment by %1, which is not an edge "
                                     "or a centre")
                          .arg(bit));
        }
        // A lone view has nothing to be aligned with, so the platform lets
        // such options stand on a format of either axis.
        if (views.size() > 1 && isHorizontal(attribute) == _axis.horizontal) {
            fail(end, _axis.horizontal
                          ? QStringLiteral("The options align the views on a horizontal edge, "
                                           "which a horizontal format cannot do")
                          : QStringLiteral("The options align the views on a vertical edge, "
                                           "which a vertical format cannot do"));
        }
        for (std::size_t index = 1; index < views.size(); ++index) {
            FormatConstraint constraint;
            constraint.firstItem = FormatItem::view(views[index]);
            constraint.firstAttribute = attribute;
            constraint.secondItem = FormatItem::view(views[index - 1]);
            constraint.secondAttribute = attribute;
            _constraints.push_back(constraint);
        }
    }
}

}  // namespace

std::vector<FormatConstraint> parseVisualFormat(const QString& format, unsigned options,
                                                const QVariantMap& metrics,
                                                const QStringList& viewNames) {
    return Parser(format, options, metrics, viewNames).parse();
}

QStringList bindingNames(const QString& list) {
    QStringList names;
    for (const QString& entry : list.split(QLatin1Char(','))) {
        const QString name = entry.trimmed();
        const bool plain = !name.isEmpty() && isIdentifierStart(name[0]) &&
                           std::all_of(name.begin(), name.end(), isIdentifierPart);
        if (!plain) {
            throw LayoutError(
                QStringLiteral("bindingNames: '%1' in \"%2\" is not a plain variable name")
                    .arg(name, list));
        }
        names.push_back(name);
    }
    return names;
}

}  // namespace platform::layout
