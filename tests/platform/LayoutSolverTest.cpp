#include "platform/layout/LayoutError.h"
#include "platform/layout/Solver.h"
#include "platform/layout/VisualFormat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <ostream>
#include <random>
#include <string>

namespace platform::layout {
void PrintTo(const FormatConstraint& constraint, std::ostream* os) {
    *os << constraint.toString().toStdString();
}
}  // namespace platform::layout

namespace {

using namespace platform::layout;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

constexpr double kTolerance = 1e-6;

/// A view's frame as four variables, in its superview's coordinates.
struct Box {
    explicit Box(const QString& name)
        : left(name + ".left"),
          top(name + ".top"),
          width(name + ".width"),
          height(name + ".height") {}

    Expression attribute(LayoutAttribute attribute) const {
        switch (attribute) {
            case LayoutAttribute::Left:
            case LayoutAttribute::Leading:
                return left;
            case LayoutAttribute::Right:
            case LayoutAttribute::Trailing:
                return left + width;
            case LayoutAttribute::Top:
                return top;
            case LayoutAttribute::Bottom:
                return top + height;
            case LayoutAttribute::Width:
                return width;
            case LayoutAttribute::Height:
                return height;
            case LayoutAttribute::CenterX:
                return left + 0.5 * width;
            case LayoutAttribute::CenterY:
                return top + 0.5 * height;
            case LayoutAttribute::NotAnAttribute:
                break;
        }
        return 0.0;
    }

    Variable left, top, width, height;
};

/// A superview of a fixed size with named subviews, laid out by formats the
/// way the views layer binds descriptions to frames.
class Screen {
public:
    Screen(double width, double height) : _root(QStringLiteral("root")) {
        for (const Constraint& c :
             {_root.left == 0, _root.top == 0, _root.width == width, _root.height == height}) {
            solver.addConstraint(c);
        }
    }

    Box& add(const QString& name) { return _views.try_emplace(name, name).first->second; }

    void apply(const QString& format, unsigned options = 0) {
        QStringList names;
        for (const auto& [name, box] : _views) {
            names << name;
        }
        names << QStringLiteral("superview");
        for (const FormatConstraint& description : parseVisualFormat(format, options, {}, names)) {
            solver.addConstraint(bind(description));
        }
    }

    const Box& item(const FormatItem& item) const {
        if (item.kind == FormatItem::Kind::View && item.name != QStringLiteral("superview")) {
            return _views.at(item.name);
        }
        return _root;
    }

    Constraint bind(const FormatConstraint& d) const {
        Expression second = d.constant;
        if (d.secondItem.kind != FormatItem::Kind::None) {
            second = item(d.secondItem).attribute(d.secondAttribute) * d.multiplier + d.constant;
        }
        return Constraint(item(d.firstItem).attribute(d.firstAttribute) - second, d.relation,
                          d.priority);
    }

    Solver solver;

private:
    Box _root;
    std::map<QString, Box> _views;
};

// ---- solving screens ------------------------------------------------------------

TEST(LayoutSolverScreens, RowOfThreeEqualWidthsFillsTheSuperview) {
    Screen screen(375, 667);
    const Box& a = screen.add("a");
    const Box& b = screen.add("b");
    const Box& c = screen.add("c");
    screen.apply("H:|-16-[a]-8-[b(==a)]-8-[c(==a)]-16-|");
    screen.apply("V:|-20-[a(44)]");
    screen.apply("H:[a]-(>=0)-[b]-(>=0)-[c]", AlignAllTop | AlignAllBottom);
    screen.solver.updateVariables();

    // 375 - 2 * 16 - 2 * 8 = 327 shared by three.
    EXPECT_NEAR(a.width.value(), 109, kTolerance);
    EXPECT_NEAR(b.width.value(), 109, kTolerance);
    EXPECT_NEAR(c.width.value(), 109, kTolerance);
    EXPECT_NEAR(a.left.value(), 16, kTolerance);
    EXPECT_NEAR(b.left.value(), 133, kTolerance);
    EXPECT_NEAR(c.left.value(), 250, kTolerance);
    EXPECT_NEAR(c.top.value(), 20, kTolerance);
    EXPECT_NEAR(c.height.value(), 44, kTolerance);
}

TEST(LayoutSolverScreens, PriorityLevelsDecideConflicts) {
    Variable width("width");
    Solver solver;
    solver.addConstraint((width == 200) | Strength::high);
    solver.addConstraint(width == 100);
    solver.updateVariables();
    EXPECT_NEAR(width.value(), 100, kTolerance);  // required beats 750

    Variable other("other");
    solver.addConstraint((other == 80) | Strength::high);
    for (int i = 0; i < 50; ++i) {
        solver.addConstraint((other == 120) | Strength::low);  // 750 beats any number of 250
    }
    solver.updateVariables();
    EXPECT_NEAR(other.value(), 80, kTolerance);

    Variable third("third");
    solver.addConstraint((third >= 30) | Strength::low);
    solver.addConstraint((third <= 10) | Strength::fitting);
    solver.updateVariables();
    EXPECT_NEAR(third.value(), 30, kTolerance);
}

TEST(LayoutSolverScreens, InequalitiesBoundAPreferredSize) {
    Screen screen(375, 667);
    const Box& label = screen.add("label");
    const Box& button = screen.add("button");
    screen.apply("H:|-20-[label(>=50,<=200)]-(>=8)-[button(60)]-20-|");
    const Constraint preferred = (label.width == 300) | Strength::low;
    screen.solver.addConstraint(preferred);
    screen.solver.addConstraint((label.left == 0) | Strength::high);  // cannot: required margin
    screen.solver.updateVariables();
    EXPECT_NEAR(label.left.value(), 20, kTolerance);
    EXPECT_NEAR(label.width.value(), 200, kTolerance);
    EXPECT_NEAR(button.left.value(), 295, kTolerance);

    screen.solver.updateConstant(preferred, -20);  // label.width == 20, below the minimum
    screen.solver.updateVariables();
    EXPECT_NEAR(label.width.value(), 50, kTolerance);
}

TEST(LayoutSolverScreens, CentringTrickCentresALabelInTheSuperview) {
    Screen screen(375, 667);
    const Box& label = screen.add("label");
    screen.apply("H:[label(100)]");
    screen.apply("V:[label(40)]");
    screen.apply("H:[superview]-(<=1)-[label]", AlignAllCenterY);
    screen.apply("V:[superview]-(<=1)-[label]", AlignAllCenterX);
    screen.solver.updateVariables();
    EXPECT_NEAR(label.left.value(), 137.5, kTolerance);
    EXPECT_NEAR(label.top.value(), 313.5, kTolerance);
}

// ---- incremental changes --------------------------------------------------------

TEST(LayoutSolverIncremental, SuggestedValuesMoveDependentsWithinRequiredBounds) {
    Variable left("left");
    Variable right("right");
    Solver solver;
    solver.addConstraint(right == left + 100);
    solver.addConstraint(left >= 0);
    solver.addConstraint(right <= 375);
    solver.addEditVariable(left, Strength::high);
    EXPECT_TRUE(solver.hasEditVariable(left));

    solver.suggestValue(left, 40);
    solver.updateVariables();
    EXPECT_NEAR(right.value(), 140, kTolerance);
    solver.suggestValue(left, 500);  // clamped by right <= 375
    solver.updateVariables();
    EXPECT_NEAR(left.value(), 275, kTolerance);
    solver.suggestValue(left, -30);
    solver.updateVariables();
    EXPECT_NEAR(left.value(), 0, kTolerance);

    solver.removeEditVariable(left);
    EXPECT_FALSE(solver.hasEditVariable(left));
    solver.addConstraint((left == 60) | Strength::low);
    solver.updateVariables();
    EXPECT_NEAR(right.value(), 160, kTolerance);
}

TEST(LayoutSolverIncremental, UpdatedConstantsResolveAndConflictingOnesAreRefused) {
    Variable top("top");
    Variable height("height");
    Solver solver;
    const Constraint margin = top == 20;
    solver.addConstraint(margin);
    solver.addConstraint(top + height <= 400);
    solver.addConstraint((height == 500) | Strength::high);
    solver.updateVariables();
    EXPECT_NEAR(height.value(), 380, kTolerance);

    solver.updateConstant(margin, -120);  // top == 120
    solver.updateVariables();
    EXPECT_EQ(margin.toString(), QStringLiteral("top == 120"));
    EXPECT_NEAR(height.value(), 280, kTolerance);

    const Constraint pinned = height == 280;
    solver.addConstraint(pinned);
    EXPECT_THROW(solver.updateConstant(pinned, -300), UnsatisfiableConstraint);
    EXPECT_EQ(pinned.toString(), QStringLiteral("height == 280"));
    solver.updateConstant(margin, -100);  // still solvable from where it stands
    solver.updateVariables();
    EXPECT_NEAR(top.value(), 100, kTolerance);
    EXPECT_NEAR(height.value(), 280, kTolerance);

    solver.removeConstraint(pinned);
    EXPECT_FALSE(solver.hasConstraint(pinned));
    solver.updateVariables();
    EXPECT_NEAR(height.value(), 300, kTolerance);
}

// Constants animated frame after frame, with constraints coming and going in
// between: the solution always matches a solver built afresh from the same
// constraints, and whenever the solver lists the values it wrote, every value
// that changed is among them.
TEST(LayoutSolverIncremental, AnimatedConstantsMatchAFreshSolveAndListWhatMoved) {
    constexpr int kCount = 12;
    std::vector<Variable> x;
    for (int i = 0; i < kCount; ++i) {
        x.emplace_back(QStringLiteral("x%1").arg(i));
    }
    // A chain x[i] = x[i-1] + gap, some links not required, held under a
    // ceiling that some gaps push them against, and a wish for x[0]. Every
    // priority differs, so the solution is unique.
    std::vector<Constraint> system{(x[0] == 10) | Strength(900)};
    for (int i = 1; i < kCount; ++i) {
        const Strength strength = i % 3 == 0 ? Strength(100.0 + 20.0 * i) : Strength::required;
        system.push_back((x[i] == x[i - 1] + 5.0 * i) | strength);
        system.push_back(x[i] <= 200.0 + 10.0 * i);
    }
    Solver solver;
    for (const Constraint& c : system) {
        solver.addConstraint(c);
    }
    solver.updateVariables();

    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> pick(0, system.size() - 1);
    std::uniform_real_distribution<double> constant(-250.0, 50.0);
    const Constraint extra = (x[kCount / 2] >= 120) | Strength::required;
    bool extraIn = false;
    for (int step = 0; step < 300; ++step) {
        if (step % 37 == 36 && extraIn) {
            solver.removeConstraint(extra);
            extraIn = false;
        } else if (step % 37 == 36) {
            try {
                solver.addConstraint(extra);
                extraIn = true;
            } catch (const UnsatisfiableConstraint&) {
            }
        } else {
            const Constraint& c = system[pick(random)];
            try {
                solver.updateConstant(c, constant(random));
            } catch (const UnsatisfiableConstraint&) {
                // A required link that the ceilings cannot take keeps its constant.
            }
        }
        std::vector<double> before;
        for (const Variable& v : x) {
            before.push_back(v.value());
        }
        const std::vector<const Variable*>* written = solver.updateChangedVariables();
        std::vector<double> incremental;
        for (const Variable& v : x) {
            incremental.push_back(v.value());
        }

        Solver fresh;
        for (const Constraint& c : system) {
            fresh.addConstraint(Constraint(c.expression(), c.relation(), c.strength()));
        }
        if (extraIn) {
            fresh.addConstraint(Constraint(extra.expression(), extra.relation(), extra.strength()));
        }
        fresh.updateVariables();
        for (std::size_t i = 0; i < x.size(); ++i) {
            const Variable& v = x[i];
            SCOPED_TRACE(testing::Message() << "step " << step << ", x" << i);
            ASSERT_NEAR(incremental[i], v.value(), 1e-6);
            if (written != nullptr && std::abs(incremental[i] - before[i]) > 1e-9) {
                EXPECT_TRUE(std::any_of(written->begin(), written->end(),
                                        [&](const Variable* w) { return w->is(v); }));
            }
        }
    }
}

TEST(LayoutSolverIncremental, ResetForgetsEverything) {
    Variable x("x");
    Solver solver;
    const Constraint c = x == 10;
    solver.addConstraint(c);
    solver.addEditVariable(x, Strength::high);
    solver.reset();
    EXPECT_FALSE(solver.hasConstraint(c));
    EXPECT_FALSE(solver.hasEditVariable(x));
    EXPECT_NO_THROW(solver.addConstraint(c));
}

// ---- errors and text ------------------------------------------------------------

TEST(LayoutSolverErrors, EachMisuseNamesItsCulprit) {
    Variable left("left");
    Variable width("width");
    Solver solver;
    const Constraint c = left + 20 == width;
    solver.addConstraint(c);
    solver.addConstraint(width == 100);

    auto message = [](auto&& action) {
        try {
            action();
        } catch (const LayoutError& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(message([&] { solver.addConstraint(c); }),
              "duplicate constraint: left + 20 == width");
    EXPECT_EQ(message([&] { solver.addConstraint(left == 0); }),
              "unsatisfiable constraint: left == 0");
    EXPECT_EQ(message([&] { solver.removeConstraint(width >= 0); }),
              "unknown constraint: width >= 0");
    EXPECT_EQ(message([&] { solver.updateConstant((width <= 5) | Strength::low, 1); }),
              "unknown constraint: width <= 5 @250");
    solver.addEditVariable(width, Strength::high);
    EXPECT_EQ(message([&] { solver.addEditVariable(width, 500); }),
              "duplicate edit variable: width");
    EXPECT_EQ(message([&] { solver.suggestValue(left, 3); }), "unknown edit variable: left");
    EXPECT_EQ(message([&] { solver.removeEditVariable(left); }), "unknown edit variable: left");
    EXPECT_EQ(message([&] { solver.addEditVariable(left, Strength::required); }),
              "an edit variable cannot be required: left");

    EXPECT_THROW(solver.addConstraint(c), DuplicateConstraint);
    EXPECT_THROW(solver.addConstraint(left == 0), UnsatisfiableConstraint);
    EXPECT_THROW(solver.removeConstraint(left == 0), UnknownConstraint);
    EXPECT_THROW(solver.addEditVariable(width, 1), DuplicateEditVariable);
    EXPECT_THROW(solver.suggestValue(left, 1), UnknownEditVariable);
    EXPECT_THROW(solver.addEditVariable(left, 1000), BadRequiredStrength);
}

TEST(LayoutSolverErrors, RefusedConstraintLeavesTheSolutionAlone) {
    Variable x("x");
    Variable y("y");
    Solver solver;
    solver.addConstraint(x + y == 100);
    solver.addConstraint(x >= 10);
    solver.addConstraint(y >= 10);
    solver.addConstraint((x == 30) | Strength::high);
    try {
        solver.addConstraint(x >= 95);
        FAIL() << "accepted";
    } catch (const UnsatisfiableConstraint& error) {
        EXPECT_EQ(error.constraint().toString(), QStringLiteral("x >= 95"));
    }
    solver.updateVariables();
    EXPECT_NEAR(x.value(), 30, kTolerance);
    EXPECT_NEAR(y.value(), 70, kTolerance);
}

TEST(LayoutSolverText, ExpressionsConstraintsAndDumpReadAsWritten) {
    Variable x("x");
    Variable y("y");
    EXPECT_EQ((2 * x - y + 10).toString(), QStringLiteral("2 * x - y + 10"));
    EXPECT_EQ((x == y + 20).toString(), QStringLiteral("x == y + 20"));
    EXPECT_EQ(((x + x >= 0.5 * y) | 250).toString(), QStringLiteral("2 * x >= 0.5 * y @250"));
    EXPECT_EQ((x / 4 <= -3).toString(), QStringLiteral("0.25 * x + 3 <= 0"));

    Solver solver;
    solver.addConstraint(x == y + 20);
    solver.addConstraint((y == 5) | Strength::high);
    const QString dump = solver.dump();
    EXPECT_THAT(dump.toStdString(), HasSubstr("x == y + 20"));
    EXPECT_THAT(dump.toStdString(), HasSubstr("x = 25"));
    EXPECT_THAT(dump.toStdString(), HasSubstr("@750:"));
}

// ---- visual format --------------------------------------------------------------

FormatConstraint spacing(FormatItem first, LayoutAttribute a1, Relation relation, FormatItem second,
                         LayoutAttribute a2, double constant, double priority = 1000) {
    return {std::move(first), a1, relation, std::move(second), a2, 1.0, constant, priority};
}

FormatConstraint size(const QString& view, LayoutAttribute attribute, Relation relation,
                      double constant, double priority = 1000) {
    return {FormatItem::view(view),          attribute, relation, FormatItem::none(),
            LayoutAttribute::NotAnAttribute, 1.0,       constant, priority};
}

using A = LayoutAttribute;
using R = Relation;
const FormatItem kSuper = FormatItem::superview();
const FormatItem kA = FormatItem::view("a");
const FormatItem kB = FormatItem::view("b");
const FormatItem kC = FormatItem::view("c");
const QStringList kNames = bindingNames("a, b, c");

TEST(VisualFormat, PlatformNumbersAndBindingNames) {
    EXPECT_EQ(static_cast<int>(A::Leading), 5);
    EXPECT_EQ(static_cast<int>(A::CenterY), 10);
    EXPECT_EQ(static_cast<int>(R::LessThanOrEqual), -1);
    EXPECT_EQ(static_cast<int>(R::GreaterThanOrEqual), 1);
    EXPECT_EQ(AlignAllCenterX, 512U);
    EXPECT_EQ(AlignAllCenterY, 1024U);
    EXPECT_EQ(bindingNames(" cancel,shutter ,  _thumb"),
              QStringList({"cancel", "shutter", "_thumb"}));
    EXPECT_THROW(bindingNames("a, self.b"), LayoutError);
}

TEST(VisualFormat, SuperviewsSpacingsAndFlushNeighbours) {
    EXPECT_THAT(parseVisualFormat("|-[a]-[b]-|", 0, {}, kNames),
                ElementsAre(spacing(kA, A::Leading, R::Equal, kSuper, A::Leading, 20),
                            spacing(kB, A::Leading, R::Equal, kA, A::Trailing, 8),
                            spacing(kSuper, A::Trailing, R::Equal, kB, A::Trailing, 20)));
    EXPECT_THAT(parseVisualFormat("V:|[a][b]-30-|", 0, {}, kNames),
                ElementsAre(spacing(kA, A::Top, R::Equal, kSuper, A::Top, 0),
                            spacing(kB, A::Top, R::Equal, kA, A::Bottom, 0),
                            spacing(kSuper, A::Bottom, R::Equal, kB, A::Bottom, 30)));
    EXPECT_THAT(parseVisualFormat("H:[a]-20.000000-[b]", 0, {}, kNames),
                ElementsAre(spacing(kB, A::Leading, R::Equal, kA, A::Trailing, 20)));
    EXPECT_THAT(parseVisualFormat("[a]-(>=8,<=40@750)-[b]-(==5)-[c]", 0, {}, kNames),
                ElementsAre(spacing(kB, A::Leading, R::GreaterThanOrEqual, kA, A::Trailing, 8),
                            spacing(kB, A::Leading, R::LessThanOrEqual, kA, A::Trailing, 40, 750),
                            spacing(kC, A::Leading, R::Equal, kB, A::Trailing, 5)));
    EXPECT_THAT(parseVisualFormat("[a]-(12@250)-|", 0, {}, kNames),
                ElementsAre(spacing(kSuper, A::Trailing, R::Equal, kA, A::Trailing, 12, 250)));
}

TEST(VisualFormat, ViewPredicatesSizeViews) {
    EXPECT_THAT(parseVisualFormat("[a(==44.5)][b(<=10,>=5@750)][c(30)]", 0, {}, kNames),
                ElementsAre(size("a", A::Width, R::Equal, 44.5),
                            spacing(kB, A::Leading, R::Equal, kA, A::Trailing, 0),
                            size("b", A::Width, R::LessThanOrEqual, 10),
                            size("b", A::Width, R::GreaterThanOrEqual, 5, 750),
                            spacing(kC, A::Leading, R::Equal, kB, A::Trailing, 0),
                            size("c", A::Width, R::Equal, 30)));
    EXPECT_THAT(parseVisualFormat("V:[a(==b@250)]", 0, {}, kNames),
                ElementsAre(FormatConstraint{kA, A::Height, R::Equal, kB, A::Height, 1, 0, 250}));
    EXPECT_THAT(parseVisualFormat("[a(>=c)]", 0, {}, kNames),
                ElementsAre(FormatConstraint{kA, A::Width, R::GreaterThanOrEqual, kC, A::Width}));
}

TEST(VisualFormat, MetricsStandForNumbersAnywhere) {
    const QVariantMap metrics{{"margin", 16}, {"side", 44.0}, {"preferred", 750}};
    EXPECT_THAT(
        parseVisualFormat("|-margin-[a(side@preferred)]-(>=margin)-|", 0, metrics, kNames),
        ElementsAre(spacing(kA, A::Leading, R::Equal, kSuper, A::Leading, 16),
                    size("a", A::Width, R::Equal, 44, 750),
                    spacing(kSuper, A::Trailing, R::GreaterThanOrEqual, kA, A::Trailing, 16)));
}

TEST(VisualFormat, AlignmentOptionsAndDirections) {
    EXPECT_THAT(parseVisualFormat("[a][b][c]", AlignAllCenterY | AlignAllTop, {}, kNames),
                UnorderedElementsAre(spacing(kB, A::Leading, R::Equal, kA, A::Trailing, 0),
                                     spacing(kC, A::Leading, R::Equal, kB, A::Trailing, 0),
                                     spacing(kB, A::Top, R::Equal, kA, A::Top, 0),
                                     spacing(kC, A::Top, R::Equal, kB, A::Top, 0),
                                     spacing(kB, A::CenterY, R::Equal, kA, A::CenterY, 0),
                                     spacing(kC, A::CenterY, R::Equal, kB, A::CenterY, 0)));
    EXPECT_THAT(parseVisualFormat("V:[a]-[b]", AlignAllCenterX, {}, kNames),
                ElementsAre(spacing(kB, A::Top, R::Equal, kA, A::Bottom, 8),
                            spacing(kB, A::CenterX, R::Equal, kA, A::CenterX, 0)));
    // A lone view has nothing to align with: the options stand on either axis.
    EXPECT_THAT(parseVisualFormat("H:[a(==78.000000)]", AlignAllCenterX, {}, kNames),
                ElementsAre(size("a", A::Width, R::Equal, 78)));
    EXPECT_THAT(parseVisualFormat("|-[a]-[b]", DirectionLeftToRight, {}, kNames),
                ElementsAre(spacing(kA, A::Left, R::Equal, kSuper, A::Left, 20),
                            spacing(kB, A::Left, R::Equal, kA, A::Right, 8)));
    EXPECT_THAT(parseVisualFormat("|-[a]-[b]", DirectionRightToLeft, {}, kNames),
                ElementsAre(spacing(kSuper, A::Right, R::Equal, kA, A::Right, 20),
                            spacing(kA, A::Left, R::Equal, kB, A::Right, 8)));
}

TEST(VisualFormat, MalformedFormatsAreRefusedWithTheirPosition) {
    struct Case {
        const char* format;
        unsigned options;
        qsizetype position;
        const char* problem;
    };
    const Case cases[] = {
        {"[a]-[d]", 0, 5, "'d' is not a key in the views dictionary"},
        {"|-[a", 0, 4, "Expected a ']'"},
        {"[a(==4x)]", 0, 6, "Expected ',' or ')'"},
        {"[a(==.)]", 0, 5, "Expected a number"},
        {"[a(=5)]", 0, 3, "Expected '==', '<=' or '>='"},
        {"[a]-[a]", 0, 5, "more than once"},
        {"|-20-|", 0, 5, "Expected a view"},
        {"-[a]", 0, 0, "needs a view or '|' before it"},
        {"[a]-10-", 0, 7, "after the spacing"},
        {"[a]-10[b]", 0, 6, "Expected a '-'"},
        {"[a]-gap-[b]", 0, 4, "'gap' is not a key in the metrics"},
        {"[a(==b@0)]", 0, 7, "priority"},
        {"[a(==b@1001)]", 0, 7, "priority"},
        {"[a]|[b]", 0, 4, "Expected the end"},
        {"X:[a]", 0, 0, "'H:' or 'V:'"},
        {"", 0, 0, "Expected a view"},
        {"H:[a][b]", AlignAllLeading, 8, "horizontal edge"},
        {"V:[a][b]", AlignAllBottom, 8, "vertical edge"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        try {
            parseVisualFormat(c.format, c.options, {}, kNames);
            ADD_FAILURE() << "accepted";
        } catch (const VisualFormatError& error) {
            EXPECT_EQ(error.format(), QString::fromUtf8(c.format));
            EXPECT_EQ(error.position(), c.position);
            EXPECT_THAT(error.problem().toStdString(), HasSubstr(c.problem));
            const std::string expected =
                "Unable to parse constraint format: " + error.problem().toStdString() + "\n" +
                c.format + "\n" + std::string(static_cast<std::size_t>(c.position), ' ') + "^";
            EXPECT_EQ(error.what(), expected);
        }
    }
}

}  // namespace
