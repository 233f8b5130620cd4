#include "platform/ui/LayoutEngine.h"

#include "platform/ui/LayoutEngineState.h"
#include "platform/ui/View.h"
#include "platform/ui/ViewController.h"

#include <utility>
#include <vector>

namespace platform {

namespace {

// Layout passes started from inside one (a layoutSubviews that lays out a
// subview) nest at most this deep; a pass re-runs at most this often when
// its own frame writes changed what the solver knows.
constexpr int kMaxNesting = 8;
constexpr int kMaxRounds = 4;

// The pass in progress on this thread, so that layoutSubviews finds its
// engine at once, and how deeply passes nest.
struct PassInProgress {
    int depth = 0;
    LayoutEngine* engine = nullptr;
    const View* root = nullptr;
};
thread_local PassInProgress tlsPass;

}  // namespace

LayoutEngine::LayoutEngine() : _state(std::make_unique<State>()) {}

LayoutEngine::~LayoutEngine() = default;

bool LayoutEngine::needsSolve() const {
    return _state->dirty();
}

const QRectF* LayoutEngine::solvedRect(const View& view) const {
    const State::ViewEntry* entry = _state->find(view);
    return entry == nullptr || !entry->solvedOnce ? nullptr : &entry->solved;
}

LayoutEngine* LayoutEngine::engineOf(View& view) {
    View* root = &view;
    while (root->_superviewPointer != nullptr) {
        root = root->_superviewPointer;
    }
    return root->_rootLayoutEngine.get();
}

void LayoutEngine::noteStructureChange(View& view) {
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->structureChanged = true;
    }
}

void LayoutEngine::noteConstantChange(View& owner, const LayoutConstraint& constraint) {
    if (LayoutEngine* engine = engineOf(owner)) {
        engine->_state->constants.push_back(&constraint);
    }
}

void LayoutEngine::notePlacementChange(View& view) {
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->placements.push_back(view.weak_from_this());
    }
}

void LayoutEngine::noteResize(View& view) {
    if (view.subviews().empty()) {
        return;
    }
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->resized.push_back(view.weak_from_this());
    }
}

void LayoutEngine::noteIntrinsicChange(View& view) {
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->intrinsics.push_back(view.weak_from_this());
    }
}

void LayoutEngine::sync(View& root) {
    if (_state->root != &root) {
        // A new root: start from nothing.
        _state = std::make_unique<State>();
        _state->root = &root;
    }
    State& state = *_state;
    if (state.structureChanged) {
        state.rebuild(root);
    } else {
        state.applyNotes();
    }
    state.structureChanged = false;
    state.constants.clear();
    state.placements.clear();
    state.intrinsics.clear();
    state.readSolution();
    for (const auto& weak : std::exchange(state.resized, {})) {
        if (auto view = weak.lock()) {
            state.reapplyInside(*view);
        }
    }
}

void LayoutEngine::layoutTree(View& view) {
    if (view._needsLayout) {
        view._needsLayout = false;
        if (auto controller = view.viewController()) {
            controller->runLayoutPass([&] { view.layoutSubviews(); });
        } else {
            view.layoutSubviews();
        }
        view.layer()->layoutIfNeeded();
    }
    if (!view._subtreeNeedsLayout) {
        return;
    }
    view._subtreeNeedsLayout = false;
    // The subviews that asked, held: layoutSubviews may change the list.
    // Usually one asked, and then nothing is allocated. One that an earlier
    // sibling's layout marks re-marks this view, and the pass goes round again.
    ViewPtr first;
    std::vector<ViewPtr> more;
    for (const ViewPtr& s : view.subviews()) {
        if (s->_needsLayout || s->_subtreeNeedsLayout) {
            if (!first) {
                first = s;
            } else {
                more.push_back(s);
            }
        }
    }
    if (first) {
        layoutTree(*first);
    }
    for (const ViewPtr& s : more) {
        if (s->_needsLayout || s->_subtreeNeedsLayout) {
            layoutTree(*s);
        }
    }
}

void LayoutEngine::layout(View& root) {
    PassInProgress& pass = tlsPass;
    if (pass.depth >= kMaxNesting) {
        return;
    }
    if (!root._rootLayoutEngine) {
        root._rootLayoutEngine = std::make_unique<LayoutEngine>();
    }
    LayoutEngine* const engine = root._rootLayoutEngine.get();
    ++pass.depth;
    LayoutEngine* const outerEngine = std::exchange(pass.engine, engine);
    const View* const outerRoot = std::exchange(pass.root, &root);
    // A pass whose frame writes changed what the solver knows (a translated
    // subview resized with its superview) runs again, a few times at most.
    for (int round = 0; round < kMaxRounds; ++round) {
        if (root._subtreeNeedsUpdateConstraints || root._needsUpdateConstraints) {
            root.updateConstraintsIfNeeded();
        }
        if (engine->_state->dirty() || engine->_state->root != &root) {
            engine->sync(root);
        }
        if (!root._needsLayout && !root._subtreeNeedsLayout) {
            break;
        }
        layoutTree(root);
        if (!engine->_state->dirty() && !root._needsLayout && !root._subtreeNeedsLayout) {
            break;
        }
    }
    pass.engine = outerEngine;
    pass.root = outerRoot;
    --pass.depth;
}

void LayoutEngine::applyFrames(View& view) {
    const PassInProgress& pass = tlsPass;
    LayoutEngine* engine = pass.engine;
    if (engine == nullptr || !view.isDescendantOfView(pass.root)) {
        engine = engineOf(view);
    }
    if (engine == nullptr) {
        return;
    }
    State& state = *engine->_state;
    // By index: writing a frame may lay out more and add to the list.
    for (std::size_t i = 0; i < state.pending.size();) {
        State::ViewEntry* entry = state.pending[i];
        if (entry->parent != &view || entry->view.expired() ||
            entry->self->_superviewPointer != &view ||
            entry->self->translatesAutoresizingMaskIntoConstraints()) {
            ++i;
            continue;
        }
        state.pending.erase(state.pending.begin() + static_cast<std::ptrdiff_t>(i));
        entry->pending = false;
        // Held by view, whose layoutSubviews this is.
        View* const s = entry->self;
        const QRectF solved = entry->solved;
        const QRectF bounds = s->bounds();
        if (bounds.size() != solved.size()) {
            s->setBounds(QRectF(bounds.topLeft(), solved.size()));
        }
        if (s->center() != solved.center()) {
            s->setCenter(solved.center());
        }
    }
}

}  // namespace platform
