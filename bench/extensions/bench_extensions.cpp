// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Each operation against a peer doing the same job, measured in the same
// run; the last lines print our time per operation divided by the peer's.
//   wildcard:  matchesWildcardPattern vs fnmatch(3)
//   numeric:   numericCompare vs strverscmp(3)
//   encoding:  stringWithBestEncodingFromFile on a 1 MB file vs the uchardet
//              command on the same file (its process start included)
// and the time per MB of escaping and expanding at 1, 2 and 4 MB (1 MB =
// 1,000,000 characters), which stays flat when the work is linear:
//   escape:    stringByEscapingCharacters on quotes, every one escaped
//   expand:    stringByExpandingEscapedControlCharacters on "\n" pairs
#include "extensions/stringextensions.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <fnmatch.h>
#include <map>
#include <string.h>

namespace {

struct Pair
{
    QString text, pattern;
    QByteArray text8, pattern8;
};

const std::vector<Pair> &wildcardPairs()
{
    static const std::vector<Pair> pairs = [] {
        std::vector<Pair> v;
        QRandomGenerator rng(1);
        for (int i = 0; i < 1000; ++i) {
            Pair p;
            for (int k = 0; k < 40; ++k)
                p.text += QChar(u'a' + rng.bounded(4));
            p.pattern = p.text.left(3) + u'*' + p.text.mid(10, 4) + u'*' + p.text.right(2);
            if (i % 2)
                p.pattern[int(p.pattern.size()) - 1] = u'z';
            p.text8 = p.text.toLatin1();
            p.pattern8 = p.pattern.toLatin1();
            v.push_back(p);
        }
        return v;
    }();
    return pairs;
}

void BM_wildcard_ours(benchmark::State &state)
{
    for (auto _ : state)
        for (const Pair &p : wildcardPairs())
            benchmark::DoNotOptimize(StringExtensions::matchesWildcardPattern(p.text, p.pattern));
}
void BM_wildcard_fnmatch(benchmark::State &state)
{
    for (auto _ : state)
        for (const Pair &p : wildcardPairs())
            benchmark::DoNotOptimize(fnmatch(p.pattern8.constData(), p.text8.constData(), 0));
}

const std::vector<Pair> &versionPairs()
{
    static const std::vector<Pair> pairs = [] {
        std::vector<Pair> v;
        QRandomGenerator rng(2);
        auto version = [&] {
            return QStringLiteral("app-%1.%2.%3-r%4")
                .arg(rng.bounded(20))
                .arg(rng.bounded(100))
                .arg(rng.bounded(1000))
                .arg(rng.bounded(10));
        };
        for (int i = 0; i < 1000; ++i) {
            Pair p { version(), version(), {}, {} };
            p.text8 = p.text.toLatin1();
            p.pattern8 = p.pattern.toLatin1();
            v.push_back(p);
        }
        return v;
    }();
    return pairs;
}

void BM_numeric_ours(benchmark::State &state)
{
    for (auto _ : state)
        for (const Pair &p : versionPairs())
            benchmark::DoNotOptimize(StringExtensions::numericCompare(p.text, p.pattern));
}
void BM_numeric_strverscmp(benchmark::State &state)
{
    for (auto _ : state)
        for (const Pair &p : versionPairs())
            benchmark::DoNotOptimize(strverscmp(p.text8.constData(), p.pattern8.constData()));
}

QString megabyteFile()
{
    static QTemporaryDir dir;
    static const QString path = [] {
        const QString p = dir.filePath(QStringLiteral("text.txt"));
        QFile f(p);
        if (!f.open(QIODevice::WriteOnly))
            qFatal("cannot write %s", qPrintable(p));
        const QByteArray line = "Gr\xC3\xBC\xC3\x9F"
                                "e aus K\xC3\xB6ln, caf\xC3\xA9 cr\xC3\xA8me br\xC3\xBBl\xC3\xA9"
                                "e.\n";
        while (f.size() < 1024 * 1024)
            f.write(line);
        return p;
    }();
    return path;
}

void BM_encoding_ours(benchmark::State &state)
{
    const QString path = megabyteFile();
    for (auto _ : state)
        benchmark::DoNotOptimize(StringExtensions::stringWithBestEncodingFromFile(path));
}
void BM_encoding_uchardet(benchmark::State &state)
{
    const QString path = megabyteFile();
    for (auto _ : state) {
        QProcess p;
        p.start(QStringLiteral("uchardet"), { path });
        if (!p.waitForFinished() || p.exitCode() != 0)
            state.SkipWithError("uchardet did not run");
    }
}

void BM_escape(benchmark::State &state)
{
    const QString text(state.range(0) * 1000000, u'"');
    const QString quote = QStringLiteral("\"");
    for (auto _ : state)
        benchmark::DoNotOptimize(StringExtensions::stringByEscapingCharacters(text, quote));
    state.counters["per_MB"] = benchmark::Counter(double(state.range(0)),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
void BM_expand(benchmark::State &state)
{
    const QString text = QStringLiteral("\\n").repeated(state.range(0) * 500000);
    for (auto _ : state)
        benchmark::DoNotOptimize(StringExtensions::stringByExpandingEscapedControlCharacters(text));
    state.counters["per_MB"] = benchmark::Counter(double(state.range(0)),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_wildcard_ours);
BENCHMARK(BM_wildcard_fnmatch);
BENCHMARK(BM_numeric_ours);
BENCHMARK(BM_numeric_strverscmp);
BENCHMARK(BM_encoding_ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_encoding_uchardet)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_escape)->Arg(1)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_expand)->Arg(1)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);

class RatioReporter : public benchmark::ConsoleReporter
{
public:
    std::map<std::string, double> perIteration;
    void ReportRuns(const std::vector<Run> &runs) override
    {
        // Plain runs, or the median of repetitions
        // (--benchmark_repetitions=N), in seconds per iteration.
        for (const Run &r : runs) {
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name != "median")
                continue;
            if (r.iterations > 0)
                perIteration[r.run_name.str()]
                    = r.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(r.time_unit);
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const std::pair<const char *, const char *> pairs[]
        = { { "BM_wildcard_ours", "BM_wildcard_fnmatch" },
              { "BM_numeric_ours", "BM_numeric_strverscmp" },
              { "BM_encoding_ours", "BM_encoding_uchardet" } };
    for (const auto &[ours, peer] : pairs) {
        auto a = reporter.perIteration.find(ours), b = reporter.perIteration.find(peer);
        if (a != reporter.perIteration.end() && b != reporter.perIteration.end() && b->second > 0)
            printf("ratio %s / %s = %.2f\n", ours, peer, a->second / b->second);
    }
    for (const char *name : { "BM_escape", "BM_expand" }) {
        printf("%s ms per MB at 1, 2, 4 MB:", name);
        for (int mb : { 1, 2, 4 }) {
            auto it = reporter.perIteration.find(std::string(name) + "/" + std::to_string(mb));
            if (it != reporter.perIteration.end())
                printf(" %.2f", it->second * 1000.0 / mb);
        }
        printf("\n");
    }
    benchmark::Shutdown();
    return 0;
}
