// Dictates repeatedly, breaks something each time, and reports whether any audio from the microphone was lost. A
// campaign is reproduced by its seed, a run of it by its number.

#include "Campaign.h"

#include "Core/LoggingService.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QRandomGenerator>

#include <iostream>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

struct Options {
    uint64_t seed = 0;
    int runs = 15;
    std::optional<int> only;
    std::optional<Fault> fault;
    bool keep = false;
    bool texts = true;
};

/// How many runs are made before their texts are awaited.
constexpr int textInterval = 28;
/// The queue's timer runs every 30 s, and after two failures it waits for a minute.
constexpr auto textLimit = 150s;

void say(const QString& line) { std::cout << line.toStdString() << std::endl; }

std::optional<Options> parse(const QCoreApplication& application) {
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Dictates, breaks something, and looks for every sample."_qs);
    parser.addHelpOption();
    parser.addOptions({{u"runs"_qs, u"How many dictations (default 15)."_qs, u"N"_qs},
                       {u"seed"_qs, u"Which campaign; a random one if not given."_qs, u"N"_qs},
                       {u"only"_qs, u"This run of the campaign alone."_qs, u"K"_qs},
                       {u"fault"_qs, u"This fault in every run."_qs, u"NAME"_qs},
                       {u"keep"_qs, u"Keeps the session's folder in any case."_qs},
                       {u"no-texts"_qs, u"Compares the audio and does not await the texts."_qs}});
    parser.process(application);
    Options options;
    bool good = true;
    const auto number = [&](const char* name, uint64_t otherwise) {
        const auto text = parser.value(QString::fromLatin1(name));
        bool valid = true;
        const auto value = text.isEmpty() ? otherwise : text.toULongLong(&valid);
        if (!valid)
            std::cerr << "--" << name << ": \"" << text.toStdString() << "\" is not a number\n";
        good = good && valid;
        return value;
    };
    options.seed = number("seed", QRandomGenerator::global()->bounded(1'000'000));
    options.runs = static_cast<int>(number("runs", 15));
    if (parser.isSet(u"only"_qs))
        options.only = static_cast<int>(number("only", 0));
    options.keep = parser.isSet(u"keep"_qs);
    options.texts = !parser.isSet(u"no-texts"_qs);
    if (const auto wanted = parser.value(u"fault"_qs); !wanted.isEmpty()) {
        QStringList names;
        for (size_t i = 0; i < faultCount; ++i)
            names.append(nameOf(static_cast<Fault>(i)));
        if (const auto found = names.indexOf(wanted); found >= 0)
            options.fault = static_cast<Fault>(found);
        else {
            std::cerr << "--fault: give one of " << names.join(u", "_qs).toStdString() << "\n";
            good = false;
        }
    }
    return good ? std::optional(options) : std::nullopt;
}

/// Sums over the runs.
struct Totals {
    int runs = 0;
    int faults = 0;
    int64_t delivered = 0;
    int64_t held = 0;
    int64_t lost = 0;
    int64_t latestStart = 0;
    int64_t earliestEnd = 0;

    void add(const RunResult& result) {
        ++runs;
        faults += static_cast<int>(result.faults.size());
        delivered += result.verdict.delivered;
        held += result.verdict.held;
        lost += result.verdict.lost;
        latestStart = std::max(latestStart, result.verdict.startDelay);
        earliestEnd = std::min(earliestEnd, result.verdict.endMargin);
    }
};

QStringList checkTexts(Campaign& campaign, int runs) {
    say(u"waiting for the texts of the runs until here"_qs);
    const auto start = monotonicNow();
    const auto faults = campaign.checkTexts(std::chrono::duration_cast<std::chrono::seconds>(textLimit));
    for (const auto& fault : faults)
        say(u"    FAULT: "_qs + fault);
    say(u"texts of %1 runs after %2 s: %3 wrong"_qs.arg(runs)
            .arg(std::chrono::duration<double>(monotonicNow() - start).count(), 0, 'f', 1)
            .arg(faults.size()));
    return faults;
}

int run(const Options& options) {
    say(u"campaign --runs %1 --seed %2"_qs.arg(options.runs).arg(options.seed));
    Campaign campaign(options.seed);
    Totals totals;
    int awaited = 0;
    for (int i = options.only.value_or(0); i < (options.only ? *options.only + 1 : options.runs); ++i) {
        const auto plan = makePlan(options.seed, i, options.fault);
        try {
            const auto result = campaign.run(plan);
            totals.add(result);
            say(u"run %1/%2 %3"_qs.arg(i).arg(options.runs).arg(result.summary()));
        } catch (const std::exception&) {
            campaign.session().desktop.keepFolder();
            say(u"run %1/%2 %3: the session broke; its logs are in %4"_qs.arg(i)
                    .arg(options.runs)
                    .arg(plan.summary(), campaign.session().desktop.folder()));
            throw;
        }
        if (options.texts && ++awaited >= textInterval) {
            totals.faults += static_cast<int>(checkTexts(campaign, awaited).size());
            awaited = 0;
        }
    }
    if (options.texts && awaited > 0)
        totals.faults += static_cast<int>(checkTexts(campaign, awaited).size());
    say(u"%1 runs: %2 samples delivered, %3 held, %4 lost; latest start %5 ms after the key, earliest end "
        "%6 ms; %7 faults"_qs.arg(totals.runs)
            .arg(totals.delivered)
            .arg(totals.held)
            .arg(totals.lost)
            .arg(totals.latestStart * 1000 / samplesPerSecond)
            .arg(totals.earliestEnd * 1000 / samplesPerSecond)
            .arg(totals.faults));
    if (totals.faults > 0 || options.keep) {
        campaign.session().desktop.keepFolder();
        say(u"logs and audio: %1; again: --seed %2 --only <run>"_qs.arg(campaign.session().desktop.folder())
                .arg(options.seed));
    }
    return totals.faults == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    quillo::LoggingService::shared().setConsoleLevel(std::nullopt);
    const auto options = parse(application);
    if (!options)
        return 2;
    try {
        return run(*options);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 2;
    }
}
