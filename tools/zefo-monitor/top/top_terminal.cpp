#include "top_terminal.h"

#include <curses.h>
#include <langinfo.h>
#include <locale.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "top_model.h"

namespace zefo::top {

namespace {

// How long one wait for a key lasts: also how soon a new pass or a signal is noticed.
constexpr int kKeyWaitMs = 50;

// Colour pairs by style; 0 where the style keeps the terminal's own colours.
short PairOf(Style style) {
  switch (style) {
    case Style::kTitle:
      return 1;
    case Style::kLabel:
      return 2;
    case Style::kLow:
      return 3;
    case Style::kMid:
      return 4;
    case Style::kHigh:
      return 5;
    case Style::kRead:
      return 6;
    case Style::kWrite:
      return 7;
    case Style::kHeader:
      return 8;
    case Style::kPrompt:
      return 9;
    default:
      return 0;
  }
}

void StartColours() {
  start_color();
  use_default_colors();
  init_pair(1, COLOR_CYAN, -1);
  init_pair(2, COLOR_BLUE, -1);
  init_pair(3, COLOR_GREEN, -1);
  init_pair(4, COLOR_YELLOW, -1);
  init_pair(5, COLOR_RED, -1);
  init_pair(6, COLOR_GREEN, -1);
  init_pair(7, COLOR_MAGENTA, -1);
  init_pair(8, COLOR_BLACK, COLOR_CYAN);
  init_pair(9, COLOR_BLACK, COLOR_YELLOW);
}

// What a style looks like: colours where the terminal has them and NO_COLOR is unset, bold,
// reverse video and underline otherwise (serial consoles, vt100).
attr_t Attributes(Style style, bool colour) {
  attr_t attributes = A_NORMAL;
  if (style == Style::kTitle || style == Style::kHigh) attributes |= A_BOLD;
  if (style == Style::kHeader || style == Style::kPrompt) attributes |= A_REVERSE;
  if (colour) {
    if (style == Style::kHeader || style == Style::kPrompt) attributes &= ~A_REVERSE;
    if (style == Style::kDim) attributes |= A_DIM;
    return attributes | COLOR_PAIR(PairOf(style));
  }
  if (style == Style::kWrite) attributes |= A_UNDERLINE;
  return attributes;
}

int TranslateKey(int key) {
  switch (key) {
    case KEY_UP:
      return kKeyUp;
    case KEY_DOWN:
      return kKeyDown;
    case KEY_PPAGE:
      return kKeyPageUp;
    case KEY_NPAGE:
    case ' ':
      return kKeyPageDown;
    case KEY_HOME:
      return kKeyHome;
    case KEY_END:
      return kKeyEnd;
    case KEY_BACKSPACE:
    case 127:
    case 8:
      return kKeyBackspace;
    case 27:
      return kKeyEscape;
    case KEY_ENTER:
    case '\n':
    case '\r':
      return kKeyEnter;
    default:
      return key;
  }
}

std::size_t Draw(const format::Snapshot& pass, ViewState& view, bool colour) {
  int height = 0, width = 0;
  getmaxyx(stdscr, height, width);
  const std::vector<Row> rows = Layout(pass, view, width, height);
  erase();
  std::size_t list_rows = 0;
  for (std::size_t y = 0; y < rows.size(); ++y) {
    move(static_cast<int>(y), 0);
    for (const Span& span : rows[y]) {
      const attr_t attributes = Attributes(span.style, colour);
      attron(attributes);
      addnstr(span.text.c_str(), static_cast<int>(span.text.size()));
      attroff(attributes);
    }
    if (!rows[y].empty() && rows[y][0].style == Style::kHeader) list_rows = rows.size() - y - 2;
  }
  refresh();
  return list_rows;
}

}  // namespace

int RunTop(PassSource& source, const sigset_t& stop_signals, long long count) {
  if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) {
    std::cerr << "zefo-monitor: --top needs a terminal on standard input and output\n";
    return 2;
  }
  setlocale(LC_ALL, "");
  ViewState view;
  view.ascii = std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0;
  // A terminal type terminfo does not know would make initscr() exit the program.
  SCREEN* screen = newterm(nullptr, stdout, stdin);
  if (screen == nullptr) {
    std::cerr << "zefo-monitor: --top: unknown terminal type '"
              << (std::getenv("TERM") ? std::getenv("TERM") : "") << "' (set TERM)\n";
    return 2;
  }
  cbreak();  // not raw: Ctrl-C still sends SIGINT, which the loop below takes
  noecho();
  keypad(stdscr, TRUE);
  curs_set(0);
  set_escdelay(25);
  timeout(kKeyWaitMs);
  const char* no_colour = std::getenv("NO_COLOR");
  const bool colour = has_colors() && (no_colour == nullptr || no_colour[0] == '\0');
  if (colour) StartColours();

  std::shared_ptr<const format::Snapshot> pass = std::make_shared<const format::Snapshot>();
  long long shown = 0;
  bool dirty = true;
  std::size_t list_rows = 0;
  const struct timespec no_wait = {0, 0};
  for (;;) {
    if (sigtimedwait(&stop_signals, nullptr, &no_wait) > 0) break;
    if (auto newer = source.Poll()) {
      pass = std::move(newer);
      dirty = true;
      ++shown;
    }
    if (dirty) {
      view.source = source.Describe();
      list_rows = Draw(*pass, view, colour);
      dirty = false;
      if (count > 0 && shown >= count) break;
    }
    const int key = getch();
    if (key == ERR) continue;
    dirty = true;
    if (key == KEY_RESIZE) continue;
    if (!view.editing && (key == KEY_LEFT || key == KEY_RIGHT)) {
      source.Step(key == KEY_LEFT ? -1 : 1);
      continue;
    }
    if (!HandleKey(TranslateKey(key), view, list_rows)) break;
  }
  endwin();
  delscreen(screen);
  return 0;
}

}  // namespace zefo::top
