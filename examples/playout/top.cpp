#include "top.h"

#include "signals.h"
#include "topLayout.h"

#include <algorithm>
#include <limits>
#include <utility>

using namespace Zv;

namespace {

constexpr double LONGEST_PAUSE = 0.5; // seconds until the table is drawn without new figures

void follow(Screen::Key key, int page, TopView &view)
{
    switch (key) {
    case Screen::Key::UP:
        --view.scroll;
        break;
    case Screen::Key::DOWN:
        ++view.scroll;
        break;
    case Screen::Key::PAGE_UP:
        view.scroll -= page;
        break;
    case Screen::Key::PAGE_DOWN:
        view.scroll += page;
        break;
    case Screen::Key::HOME:
        view.scroll = 0;
        break;
    case Screen::Key::END:
        view.scroll = std::numeric_limits<int>::max();
        break;
    case Screen::Key::SORT:
        view.isByProcessor = !view.isByProcessor;
        break;
    case Screen::Key::QUIT:
        Signals::askForStop();
        break;
    case Screen::Key::NONE:
        break;
    }
}

} // namespace

/// Draws and waits for keys until the table ends. Its thread has no priority relation, and so the
/// lowest level.
class Top::Body final : public MtThreadProtocol
{
public:
    explicit Body(Top &top) : _top(top) {}

    void performExecute(MtThread *) override
    {
        Screen &screen = *_top._screen;
        TopView view;
        while (draw(view)) {
            int const page = std::max(screen.getHeight() / 2, 1);
            follow(screen.wait(LONGEST_PAUSE), page, view);
            for (auto const &line : screen.takeErrors())
                _top.line(line);
        }
    }
    void performStop(MtThread *) override
    {
        {
            LkGuard<LkLock const> const guard(_top._lock);
            _top._isEnding = true;
        }
        _top._screen->wake();
    }

private:
    /// Returns false if the table has ended.
    bool draw(TopView &view)
    {
        TopFigures figures;
        std::deque<std::string> log;
        {
            LkGuard<LkLock const> const guard(_top._lock);
            if (_top._isEnding)
                return false;
            figures = _top._figures;
            log = _top._log;
        }
        Screen &screen = *_top._screen;
        TopPicture const picture =
            layOutTop(figures, log, screen.getWidth(), screen.getHeight(), view);
        view.scroll = picture.scroll;
        screen.draw(picture.lines);
        return true;
    }

    Top &_top;
};

Top::Top() : _screen(Screen::open())
{
    _thread = MtThreadFactory::getInstance().createThread("top", makeObj<Body>(*this));
    _thread->start();
}

Top::~Top() noexcept(false)
{
    _thread->stop();
    _thread->join();
}

void Top::show(TopFigures figures)
{
    {
        LkGuard<LkLock const> const guard(_lock);
        std::swap(_figures, figures);
    }
    _screen->wake();
}

void Top::line(std::string const &text)
{
    LkGuard<LkLock const> const guard(_lock);
    _log.push_back(text);
    if (_log.size() > MOST_LINES)
        _log.pop_front();
}
