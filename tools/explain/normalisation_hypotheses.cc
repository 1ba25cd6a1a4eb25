#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "tools/explain/hypotheses.h"
#include "tools/settings/numbers.h"

namespace corvane_tool {

namespace {

using Numbers = std::vector<float>;

Numbers Reversed(Numbers numbers) {
  std::reverse(numbers.begin(), numbers.end());
  return numbers;
}

template <typename Function>
Numbers Each(const Numbers& a, const Numbers& b, Function function) {
  Numbers result(a.size());
  for (std::size_t c = 0; c < a.size(); ++c) result[c] = function(a[c], b[c]);
  return result;
}

using Change = std::function<Normalisation(const Numbers& means, const Numbers& scales)>;

void AddNormalisation(std::string words, unsigned aspects, Change change,
                      std::vector<Hypothesis>* all) {
  all->push_back({std::move(words), aspects, [change = std::move(change)](Recipe* recipe) {
                    const Normalisation& now = recipe->normalisation;
                    recipe->normalisation = change(now.means, now.scales);
                    return true;
                  }});
}

void AddOrdersAndUnits(std::vector<Hypothesis>* all) {
  const auto zeros = [](const Numbers& like) { return Numbers(like.size(), 0.0F); };
  const auto ones = [](const Numbers& like) { return Numbers(like.size(), 1.0F); };
  const auto times = [](float factor) { return [factor](float a, float) { return a * factor; }; };
  using Result = Normalisation;
  const unsigned both = kMeans | kScales;
  AddNormalisation(
      "the means are in the other order", kOrder | kMeans,
      [](const Numbers& m, const Numbers& s) {
        return Result{Reversed(m), s};
      },
      all);
  AddNormalisation(
      "the scales are in the other order", kOrder | kScales,
      [](const Numbers& m, const Numbers& s) {
        return Result{m, Reversed(s)};
      },
      all);
  AddNormalisation(
      "means and scales are in the other order", kOrder,
      [](const Numbers& m, const Numbers& s) {
        return Result{Reversed(m), Reversed(s)};
      },
      all);
  AddNormalisation(
      "no means are subtracted", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{zeros(m), s};
      },
      all);
  AddNormalisation(
      "nothing is scaled", kScales,
      [=](const Numbers& m, const Numbers& s) {
        return Result{m, ones(s)};
      },
      all);
  AddNormalisation(
      "the picture is not normalised at all", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{zeros(m), ones(s)};
      },
      all);
  AddNormalisation(
      "the scales are divisors (their inverse multiplies)", kScales,
      [](const Numbers& m, const Numbers& s) {
        return Result{m, Each(s, s, [](float a, float) { return 1 / a; })};
      },
      all);
  AddNormalisation(
      "means and scales are meant for pictures of 0 to 1 (bytes divided by 255 first)", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(255.0F)), Each(s, s, times(1 / 255.0F))};
      },
      all);
  AddNormalisation(
      "means and divisors are meant for pictures of 0 to 1 (bytes divided by 255 first)", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(255.0F)),
                      Each(s, s, [](float a, float) { return 1 / (255 * a); })};
      },
      all);
  AddNormalisation(
      "means and scales are meant for bytes, not for 0 to 1", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(1 / 255.0F)), Each(s, s, times(255.0F))};
      },
      all);
  AddNormalisation(
      "the means are meant for pictures of 0 to 1", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(255.0F)), s};
      },
      all);
  AddNormalisation(
      "the means are 255 times smaller", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(1 / 255.0F)), s};
      },
      all);
  AddNormalisation(
      "the scales are 255 times smaller (they are meant for pictures of 0 to 1)", kScales,
      [=](const Numbers& m, const Numbers& s) {
        return Result{m, Each(s, s, times(1 / 255.0F))};
      },
      all);
  AddNormalisation(
      "the scales are 255 times larger", kScales,
      [=](const Numbers& m, const Numbers& s) {
        return Result{m, Each(s, s, times(255.0F))};
      },
      all);
  AddNormalisation(
      "the picture is normalised twice", both,
      [](const Numbers& m, const Numbers& s) {
        return Result{Each(m, s, [](float a, float b) { return a + a / b; }),
                      Each(s, s, [](float a, float b) { return a * b; })};
      },
      all);
  AddNormalisation(
      "the scales multiply before the means are subtracted", kMeans,
      [](const Numbers& m, const Numbers& s) {
        return Result{Each(m, s, [](float a, float b) { return a / b; }), s};
      },
      all);
  AddNormalisation(
      "the means are added, not subtracted", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(-1.0F)), s};
      },
      all);
}

// The constants in use, for settings that have others or none.
void AddUsualConstants(int channels, std::vector<Hypothesis>* all) {
  struct Usual {
    const char* words;
    Numbers means, scales;
  };
  const Usual usual[] = {{"means 127.5, scales 1/127.5", {127.5F}, {1 / 127.5F}},
                         {"means 127.5, scales 1/128", {127.5F}, {1 / 128.0F}},
                         {"means 128, scales 1/128", {128.0F}, {1 / 128.0F}},
                         {"no means, scales 1/255", {0.0F}, {1 / 255.0F}},
                         {"the ImageNet constants",
                          {123.675F, 116.28F, 103.53F},
                          {1 / 58.395F, 1 / 57.12F, 1 / 57.375F}},
                         {"the ImageNet constants in the order B, G, R",
                          {103.53F, 116.28F, 123.675F},
                          {1 / 57.375F, 1 / 57.12F, 1 / 58.395F}},
                         {"means 104, 117, 123 and no scales", {104.0F, 117.0F, 123.0F}, {1.0F}},
                         {"means 123, 117, 104 and no scales", {123.0F, 117.0F, 104.0F}, {1.0F}}};
  const auto count = static_cast<std::size_t>(channels);
  for (const Usual& row : usual) {
    if (row.means.size() > count) continue;
    Normalisation value = {row.means, row.scales};
    value.means.resize(count, row.means[0]);
    value.scales.resize(count, row.scales[0]);
    AddNormalisation(
        std::string("the normalisation is another: ") + row.words, kMeans | kScales,
        [value](const Numbers&, const Numbers&) { return value; }, all);
    AddNormalisation(
        "the means are " + NumbersText(value.means.data(), count), kMeans,
        [value](const Numbers&, const Numbers& s) {
          return Normalisation{value.means, s};
        },
        all);
  }
}

// Where the model normalises by itself, one of the two may be too many.
void AddOwn(const Normalisation& settings, const Normalisation& own, std::vector<Hypothesis>* all) {
  const auto is = [](const Numbers& numbers, float value) {
    return std::count(numbers.begin(), numbers.end(), value) ==
           static_cast<std::ptrdiff_t>(numbers.size());
  };
  if (is(own.means, 0) && is(own.scales, 1)) return;
  AddNormalisation(
      "the model's own normalisation is not applied", kMeans | kScales,
      [=](const Numbers&, const Numbers&) { return settings; }, all);
  AddNormalisation(
      "only the model's own normalisation is applied", kMeans | kScales,
      [=](const Numbers&, const Numbers&) { return own; }, all);
}

}  // namespace

void AddNormalisations(const Normalisation& settings, const Normalisation& own,
                       std::vector<Hypothesis>* all) {
  AddOwn(settings, own, all);
  AddOrdersAndUnits(all);
  AddUsualConstants(static_cast<int>(own.means.size()), all);
}

}  // namespace corvane_tool
