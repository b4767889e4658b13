#pragma once
// The tray glyphs: one per status name, coloured by status, drawn at the sizes that panels ask for
// (16 and 22 px, and their high-density doubles). Drawn at run time, cached per name.

#include <QColor>
#include <QIcon>
#include <QImage>

#include <map>
#include <string>
#include <string_view>

namespace corvane {

class TrayIconSet {
  public:
    static constexpr int kSizes[] = {16, 22, 32, 44};

    // The icon of a status name; names it doesn't know get the neutral glyph.
    const QIcon& icon(std::string_view statusName);

    // The glyph's colour: it carries the message, so it is not a monochrome template.
    static QColor colorFor(std::string_view statusName);
    // One glyph at size x size pixels, transparent around it.
    static QImage render(std::string_view statusName, int size);

  private:
    std::map<std::string, QIcon, std::less<>> cache_;
};

}  // namespace corvane
