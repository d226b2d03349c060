// Renders one SVG drawing to a PNG of a given size, after replacing placeholder words in the
// SVG text (for instance "@FG@=rgb(0,190,255)"). Used at build time to make the interface images.
//
//   svg_render <in.svg> <out.png> <width> <height> [KEY=VALUE ...]
#include <QByteArray>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: svg_render <in.svg> <out.png> <width> <height> [KEY=VALUE ...]\n");
    return 2;
  }
  QFile in(QString::fromLocal8Bit(argv[1]));
  if (!in.open(QIODevice::ReadOnly)) {
    std::fprintf(stderr, "svg_render: cannot read %s\n", argv[1]);
    return 1;
  }
  QByteArray svg = in.readAll();
  for (int i = 5; i < argc; ++i) {
    const QByteArray pair(argv[i]);
    const int eq = pair.indexOf('=');
    if (eq <= 0) {
      std::fprintf(stderr, "svg_render: bad substitution %s\n", argv[i]);
      return 2;
    }
    svg.replace(pair.left(eq), pair.mid(eq + 1));
  }
  const int width = std::atoi(argv[3]);
  const int height = std::atoi(argv[4]);
  QSvgRenderer renderer(svg);
  if (!renderer.isValid() || width <= 0 || height <= 0) {
    std::fprintf(stderr, "svg_render: %s is not a valid drawing or the size is wrong\n", argv[1]);
    return 1;
  }
  QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  {
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
  }
  if (!image.save(QString::fromLocal8Bit(argv[2]), "PNG")) {
    std::fprintf(stderr, "svg_render: cannot write %s\n", argv[2]);
    return 1;
  }
  return 0;
}
