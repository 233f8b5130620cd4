// Our layout solver against kiwisolver (Debian's python3-kiwisolver, a C++
// core driven from Python) on the same capture screen: 15 views of four
// variables each under 68 constraints. Both solve it from nothing and again
// after one constant changes; the Python side times itself with
// time.perf_counter and reports per-operation times, read here as manual
// times so that the ratios compare ours to kiwi within one run.
#include "Ratio.h"

#include "platform/layout/Solver.h"

#include <QProcess>
#include <QStringList>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using platform::layout::Constraint;
using platform::layout::Expression;
using platform::layout::Relation;
using platform::layout::Solver;
using platform::layout::Strength;
using platform::layout::Term;
using platform::layout::Variable;

constexpr int kViews = 15;
constexpr int kFields = 4;  // left, top, width, height
constexpr double kScreenWidth = 375;
constexpr double kScreenHeight = 812;

/// A linear expression over the screen's variables by index, so that the
/// same system can be built here and written out for Python.
struct Affine {
    Affine(double c = 0.0) : constant(c) {}
    std::vector<std::pair<int, double>> terms;
    double constant = 0.0;
};

Affine operator+(Affine a, const Affine& b) {
    a.terms.insert(a.terms.end(), b.terms.begin(), b.terms.end());
    a.constant += b.constant;
    return a;
}

Affine operator*(double k, Affine a) {
    for (auto& term : a.terms) {
        term.second *= k;
    }
    a.constant *= k;
    return a;
}

Affine operator-(const Affine& a, const Affine& b) {
    return a + (-1.0) * b;
}

struct Rule {
    Affine expression;
    Relation relation;
    double priority;
};

Rule eq(const Affine& a, const Affine& b, double priority = 1000) {
    return {a - b, Relation::Equal, priority};
}
Rule le(const Affine& a, const Affine& b, double priority = 1000) {
    return {a - b, Relation::LessThanOrEqual, priority};
}
Rule ge(const Affine& a, const Affine& b, double priority = 1000) {
    return {a - b, Relation::GreaterThanOrEqual, priority};
}

Affine field(int view, int index) {
    Affine a;
    a.terms.emplace_back(view * kFields + index, 1.0);
    return a;
}
Affine left(int v) {
    return field(v, 0);
}
Affine top(int v) {
    return field(v, 1);
}
Affine width(int v) {
    return field(v, 2);
}
Affine height(int v) {
    return field(v, 3);
}
Affine right(int v) {
    return left(v) + width(v);
}
Affine bottom(int v) {
    return top(v) + height(v);
}
Affine centerX(int v) {
    return left(v) + 0.5 * width(v);
}
Affine centerY(int v) {
    return top(v) + 0.5 * height(v);
}

enum View {
    TopBar,
    Flash,
    Timer,
    SwitchCamera,
    BottomBar,
    Shutter,
    Thumbnail,
    Cancel,
    ModeLabel,
    Preview,
    Zoom,
    Focus,
    Grid,
    Exposure,
    Hint,
};

/// The rule whose constant changes, and the two constants it alternates
/// between (the top bar growing from 44 to 64 points moves everything below).
constexpr std::size_t kChangedRule = 3;
constexpr double kChangedConstants[2] = {-44, -64};

std::vector<Rule> captureScreen() {
    const double midX = kScreenWidth / 2;
    return {
        eq(left(TopBar), 0),
        eq(top(TopBar), 0),
        eq(width(TopBar), kScreenWidth),
        eq(height(TopBar), 44),

        eq(left(Flash), left(TopBar) + 16),
        eq(centerY(Flash), centerY(TopBar)),
        eq(width(Flash), 44),
        eq(height(Flash), 44),

        eq(centerX(Timer), midX),
        eq(top(Timer), top(Flash)),
        ge(width(Timer), 44),
        eq(width(Timer), 60, 750),
        eq(height(Timer), height(Flash)),

        eq(right(SwitchCamera), right(TopBar) - 16),
        eq(top(SwitchCamera), top(Flash)),
        eq(width(SwitchCamera), 44),
        eq(height(SwitchCamera), 44),

        eq(left(BottomBar), 0),
        eq(width(BottomBar), kScreenWidth),
        eq(bottom(BottomBar), kScreenHeight),
        ge(height(BottomBar), 120),
        eq(height(BottomBar), 160, 750),

        eq(centerX(Shutter), midX),
        eq(centerY(Shutter), centerY(BottomBar)),
        eq(width(Shutter), 72),
        eq(height(Shutter), width(Shutter)),

        eq(left(Thumbnail), left(BottomBar) + 24),
        eq(centerY(Thumbnail), centerY(Shutter)),
        eq(width(Thumbnail), 52),
        eq(height(Thumbnail), width(Thumbnail)),

        eq(right(Cancel), right(BottomBar) - 24),
        eq(centerY(Cancel), centerY(Shutter)),
        ge(width(Cancel), 60),
        eq(width(Cancel), 80, 250),
        eq(height(Cancel), 44),

        eq(centerX(ModeLabel), midX),
        eq(bottom(ModeLabel), top(BottomBar) - 8),
        le(width(ModeLabel), kScreenWidth - 40),
        eq(width(ModeLabel), 200, 250),
        eq(height(ModeLabel), 20),

        eq(left(Preview), 0),
        eq(top(Preview), bottom(TopBar)),
        eq(width(Preview), kScreenWidth),
        le(bottom(Preview), top(ModeLabel) - 8),
        eq(height(Preview), (4.0 / 3.0) * width(Preview), 750),

        eq(centerX(Zoom), centerX(Preview)),
        eq(bottom(Zoom), bottom(Preview) - 12),
        eq(width(Zoom), 40),
        eq(height(Zoom), 40),

        eq(width(Focus), 80),
        eq(height(Focus), 80),
        eq(centerX(Focus), centerX(Preview), 250),
        eq(centerY(Focus), centerY(Preview), 250),

        eq(left(Grid), left(Preview)),
        eq(top(Grid), top(Preview)),
        eq(width(Grid), width(Preview)),
        eq(height(Grid), height(Preview)),

        eq(left(Exposure), right(Focus) + 8),
        eq(centerY(Exposure), centerY(Focus)),
        eq(width(Exposure), 24),
        eq(height(Exposure), 120, 750),
        le(height(Exposure), height(Preview)),

        eq(top(Hint), bottom(TopBar) + 8),
        eq(centerX(Hint), midX),
        le(width(Hint), 300),
        eq(width(Hint), 280, 250),
        ge(height(Hint), 20),
        eq(height(Hint), 30, 750),
    };
}

/// The screen as our constraints over named variables.
struct OurScreen {
    OurScreen() {
        for (int i = 0; i < kViews * kFields; ++i) {
            variables.emplace_back(QStringLiteral("v%1").arg(i));
        }
        for (const Rule& rule : captureScreen()) {
            constraints.push_back(make(rule, rule.expression.constant));
        }
        const Rule changed = captureScreen()[kChangedRule];
        alternative = make(changed, kChangedConstants[1]);
    }

    Constraint make(const Rule& rule, double constant) const {
        std::vector<Term> terms;
        for (const auto& [index, coefficient] : rule.expression.terms) {
            terms.emplace_back(variables[static_cast<std::size_t>(index)], coefficient);
        }
        return Constraint(Expression(std::move(terms), constant), rule.relation,
                          Strength(rule.priority));
    }

    std::vector<Variable> variables;
    std::vector<Constraint> constraints;
    Constraint alternative = Constraint(Expression(), Relation::Equal);
};

// ---- the reference, measured by Python ------------------------------------------

const char* const kScript = R"PY(
import gc, sys, time
try:
    import kiwisolver as kiwi
except Exception as error:
    print("unavailable", error)
    sys.exit(0)

system = [%SYSTEM%]
changed, alternative_constant = %CHANGED%, %ALTERNATIVE%
strengths = {1000.0: "required", 750.0: "strong", 250.0: "medium", 50.0: "weak"}
variables = [kiwi.Variable("v%d" % i) for i in range(%VARIABLES%)]

def make(terms, constant, relation, priority):
    expression = kiwi.Expression([kiwi.Term(variables[i], c) for i, c in terms], constant)
    if relation == 0:
        constraint = expression == 0
    elif relation < 0:
        constraint = expression <= 0
    else:
        constraint = expression >= 0
    return constraint | strengths[priority]

constraints = [make(*rule) for rule in system]
terms, _, relation, priority = system[changed]
pair = [constraints[changed], make(terms, alternative_constant, relation, priority)]

def solve_from_nothing():
    solver = kiwi.Solver()
    for constraint in constraints:
        solver.addConstraint(constraint)
    solver.updateVariables()

edited = kiwi.Solver()
for constraint in constraints:
    edited.addConstraint(constraint)

def change_constant():
    edited.removeConstraint(pair[0])
    edited.addConstraint(pair[1])
    edited.updateVariables()
    pair.reverse()

def per_operation(operation):
    count = 1
    while True:
        start = time.perf_counter()
        for _ in range(count):
            operation()
        if time.perf_counter() - start > 0.05:
            break
        count *= 2
    best = float("inf")
    for _ in range(5):
        start = time.perf_counter()
        for _ in range(count):
            operation()
        best = min(best, (time.perf_counter() - start) / count)
    return best, count

gc.disable()
solve_from_nothing()
print("values", " ".join(repr(v.value()) for v in variables))
for name, operation in (("solve", solve_from_nothing), ("change", change_constant)):
    seconds, count = per_operation(operation)
    print(name, repr(seconds), count)
)PY";

struct KiwiTimes {
    std::string error;                                              // empty when measured
    std::map<std::string, std::pair<double, double>> perOperation;  // seconds, iterations
};

QString pythonNumber(double value) {
    return QString::number(value, 'g', 17);
}

QString systemLiteral() {
    QStringList rules;
    for (const Rule& rule : captureScreen()) {
        QStringList terms;
        for (const auto& [index, coefficient] : rule.expression.terms) {
            terms << QStringLiteral("(%1, %2)").arg(index).arg(pythonNumber(coefficient));
        }
        rules << QStringLiteral("([%1], %2, %3, %4)")
                     .arg(terms.join(QStringLiteral(", ")), pythonNumber(rule.expression.constant))
                     .arg(static_cast<int>(rule.relation))
                     .arg(pythonNumber(rule.priority));
    }
    return rules.join(QStringLiteral(",\n    "));
}

bool sameSolution(const QStringList& kiwiValues) {
    OurScreen screen;
    Solver solver;
    for (const Constraint& constraint : screen.constraints) {
        solver.addConstraint(constraint);
    }
    solver.updateVariables();
    if (kiwiValues.size() != static_cast<qsizetype>(screen.variables.size())) {
        return false;
    }
    for (std::size_t i = 0; i < screen.variables.size(); ++i) {
        const double theirs = kiwiValues[static_cast<qsizetype>(i)].toDouble();
        if (std::abs(screen.variables[i].value() - theirs) > 1e-6) {
            return false;
        }
    }
    return true;
}

KiwiTimes measureKiwi() {
    QString script = QString::fromUtf8(kScript);
    script.replace(QStringLiteral("%SYSTEM%"), systemLiteral())
        .replace(QStringLiteral("%CHANGED%"), QString::number(kChangedRule))
        .replace(QStringLiteral("%ALTERNATIVE%"), pythonNumber(kChangedConstants[1]))
        .replace(QStringLiteral("%VARIABLES%"), QString::number(kViews * kFields));

    // Debian's interpreter, which is the one python3-kiwisolver installs into.
    QProcess python;
    python.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), script});
    if (!python.waitForStarted(10'000) || !python.waitForFinished(300'000)) {
        return {"/usr/bin/python3 did not run", {}};
    }
    const QString output = QString::fromUtf8(python.readAllStandardOutput());
    if (python.exitCode() != 0) {
        // The last line that names an error says what went wrong.
        const QStringList lines = QString::fromUtf8(python.readAllStandardError())
                                      .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QString reason = lines.isEmpty() ? QStringLiteral("no message") : lines.last();
        for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
            if (line->contains(QStringLiteral("Error"))) {
                reason = line->trimmed();
                break;
            }
        }
        return {"the kiwisolver script failed: " + reason.toStdString(), {}};
    }
    KiwiTimes times;
    for (const QString& line : output.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        QStringList fields = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const QString key = fields.takeFirst();
        if (key == QStringLiteral("unavailable")) {
            return {"python3-kiwisolver is not installed (" + fields.join(' ').toStdString() + ")",
                    {}};
        }
        if (key == QStringLiteral("values")) {
            if (!sameSolution(fields)) {
                return {"kiwisolver found another solution; the systems differ", {}};
            }
        } else if (fields.size() == 2) {
            times.perOperation[key.toStdString()] = {fields[0].toDouble(), fields[1].toDouble()};
        }
    }
    if (times.perOperation.size() != 2) {
        return {"unexpected output from the kiwisolver script", {}};
    }
    return times;
}

const KiwiTimes& kiwiTimes() {
    static const KiwiTimes times = [] {
        KiwiTimes measured = measureKiwi();
        if (!measured.error.empty()) {
            std::fprintf(stderr, "skipping the kiwisolver reference: %s\n", measured.error.c_str());
        }
        return measured;
    }();
    return times;
}

void reportKiwi(benchmark::State& state, const char* operation) {
    const KiwiTimes& kiwi = kiwiTimes();
    if (!kiwi.error.empty()) {
        state.SkipWithError(("kiwisolver reference unavailable: " + kiwi.error).c_str());
        return;
    }
    const auto [seconds, iterations] = kiwi.perOperation.at(operation);
    for (auto _ : state) {
        state.SetIterationTime(seconds);
    }
    state.counters["python_iterations"] = iterations;
}

// ---- benchmarks ----------------------------------------------------------------------

void BM_LayoutSolveScreen(benchmark::State& state) {
    const OurScreen screen;
    for (auto _ : state) {
        Solver solver;
        for (const Constraint& constraint : screen.constraints) {
            solver.addConstraint(constraint);
        }
        solver.updateVariables();
    }
}
BENCHMARK(BM_LayoutSolveScreen)->Unit(benchmark::kMicrosecond);

void BM_KiwiSolveScreen(benchmark::State& state) {
    reportKiwi(state, "solve");
}
BENCHMARK(BM_KiwiSolveScreen)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_LayoutChangeConstant(benchmark::State& state) {
    const OurScreen screen;
    Solver solver;
    for (const Constraint& constraint : screen.constraints) {
        solver.addConstraint(constraint);
    }
    const Constraint& changed = screen.constraints[kChangedRule];
    std::size_t next = 1;
    for (auto _ : state) {
        solver.updateConstant(changed, kChangedConstants[next]);
        solver.updateVariables();
        next ^= 1;
    }
}
BENCHMARK(BM_LayoutChangeConstant)->Unit(benchmark::kMicrosecond);

/// The way kiwi changes a constant: the old constraint out, a new one in.
void BM_LayoutRemoveAddConstraint(benchmark::State& state) {
    const OurScreen screen;
    Solver solver;
    for (const Constraint& constraint : screen.constraints) {
        solver.addConstraint(constraint);
    }
    Constraint pair[2] = {screen.constraints[kChangedRule], screen.alternative};
    for (auto _ : state) {
        solver.removeConstraint(pair[0]);
        solver.addConstraint(pair[1]);
        solver.updateVariables();
        std::swap(pair[0], pair[1]);
    }
}
BENCHMARK(BM_LayoutRemoveAddConstraint)->Unit(benchmark::kMicrosecond);

void BM_KiwiChangeConstant(benchmark::State& state) {
    reportKiwi(state, "change");
}
BENCHMARK(BM_KiwiChangeConstant)->UseManualTime()->Unit(benchmark::kMicrosecond);

const bool kRatios =
    bench::declareRatio("BM_LayoutSolveScreen", "BM_KiwiSolveScreen/manual_time", 1.0) &&
    bench::declareRatio("BM_LayoutChangeConstant", "BM_KiwiChangeConstant/manual_time", 1.0) &&
    bench::declareRatio("BM_LayoutRemoveAddConstraint", "BM_KiwiChangeConstant/manual_time", 1.0);

}  // namespace
