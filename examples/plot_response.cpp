/* Plots the amplitude of an instrument response over frequency, both logarithmic.
 *
 * Reads a file of frequency, amplitude and phase into a vector, evaluates the vector at
 * evenly spaced logarithms of frequency, and writes the curve with its axes as SVG: all that
 * a picture of one's own needs is a place on the paper for each value.
 *
 * Usage: plot_response FAP_FILE SVG_FILE */
#include <ksutil.h>

#include <cmath>
#include <cstdio>
#include <memory>

namespace {

/* One axis: values from 10^low to 10^high on the paper from `from` to `to`. */
struct LogAxis {
  int low, high;
  double from, to;
  LogAxis(double least, double greatest, double from_in, double to_in)
      : low(static_cast<int>(std::floor(std::log10(least)))),
        high(static_cast<int>(std::ceil(std::log10(greatest)))),
        from(from_in),
        to(to_in) {
    if (high == low) high++;
  }
  double place(double exponent) const {
    return from + (to - from) * (exponent - low) / (high - low);
  }
};

struct Vector {
  char tag[KS_TAG_SIZE] = "";
  ~Vector() { ksvector_free(tag); }
};

struct Close {
  void operator()(std::FILE *file) const { std::fclose(file); }
};

void line(std::FILE *svg, double x1, double y1, double x2, double y2) {
  std::fprintf(svg, "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#ccc'/>\n",
               x1, y1, x2, y2);
}

void text(std::FILE *svg, double x, double y, const char *anchor, const char *words,
          int exponent) {
  std::fprintf(svg, "<text x='%.1f' y='%.1f' text-anchor='%s'>%s%d</text>\n", x, y,
               anchor, words, exponent);
}

/* A grid line with its label for each power of ten. */
void draw_axes(std::FILE *svg, const LogAxis &x, const LogAxis &y) {
  for (int power = x.low; power <= x.high; power++) {
    line(svg, x.place(power), y.from, x.place(power), y.to);
    text(svg, x.place(power), y.from + 18, "middle", "1e", power);
  }
  for (int power = y.low; power <= y.high; power++) {
    line(svg, x.from, y.place(power), x.to, y.place(power));
    text(svg, x.from - 6, y.place(power) + 4, "end", "1e", power);
  }
  std::fprintf(svg,
               "<text x='%.1f' y='%.1f' text-anchor='middle'>frequency / Hz</text>\n",
               (x.from + x.to) / 2, y.from + 38);
}

/* The curve, which amplitudes below the axis, and 0 that has no logarithm, interrupt. */
int draw_curve(std::FILE *svg, const char *tag, const LogAxis &x, const LogAxis &y,
               double first, double last) {
  constexpr int kSteps = 400;
  const int columns = ksvector_get_vector(tag)->ny;
  const std::unique_ptr<double[]> values(new double[static_cast<std::size_t>(columns)]);
  std::fputs("<path fill='none' stroke='#1764ab' stroke-width='2' d='", svg);
  bool begun = false;
  for (int i = 0; i <= kSteps; i++) {
    const double exponent =
        std::log10(first) + (std::log10(last) - std::log10(first)) * i / kSteps;
    if (ksvector_eval(tag, values.get(), std::pow(10.0, exponent)) != 0) return -1;
    const bool there = values[0] > 0 && std::log10(values[0]) >= y.low;
    if (there) {
      std::fprintf(svg, "%s%.1f %.1f ", begun ? "L" : "M", x.place(exponent),
                   y.place(std::log10(values[0])));
    }
    begun = there;
  }
  std::fputs("'/>\n", svg);
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fputs("usage: plot_response FAP_FILE SVG_FILE\n", stderr);
    return 2;
  }
  Vector response;
  int status = 0;
  double first = 0, last = 0, least = 0, greatest = 0;
  if (ksvector_create_response_fap(argv[1], nullptr, response.tag, &status) ==
          nullptr ||
      ksvector_maxmin(response.tag, 0, &first, &last, &least, &greatest) != 0) {
    ks_complain(0, "%s has no response.\n", argv[1]);
    return 1;
  }
  if (first <= 0 || last <= first || greatest <= 0) {
    ks_complain(0, "%s does not fit logarithmic axes.\n", argv[1]);
    return 1;
  }
  /* Six decades below the greatest amplitude are enough to see. */
  const LogAxis x(first, last, 60, 580),
      y(std::fmax(least, greatest * 1e-6), greatest, 340, 20);
  const std::unique_ptr<std::FILE, Close> svg(std::fopen(argv[2], "w"));
  if (svg == nullptr) {
    ks_complain(1, "plot_response: cannot write %s.\n", argv[2]);
    return 1;
  }
  std::fputs(
      "<svg xmlns='http://www.w3.org/2000/svg' width='600' height='390'"
      " font-family='sans-serif' font-size='13'>\n",
      svg.get());
  draw_axes(svg.get(), x, y);
  const bool drawn = draw_curve(svg.get(), response.tag, x, y, first, last) == 0;
  std::fputs("</svg>\n", svg.get());
  if (!drawn || std::fflush(svg.get()) != 0) {
    ks_complain(1, "plot_response: cannot write %s.\n", argv[2]);
    return 1;
  }
  std::printf("%s: %g to %g Hz, amplitudes %g to %g\n", argv[2], first, last, least,
              greatest);
}
