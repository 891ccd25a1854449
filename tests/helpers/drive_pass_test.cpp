#include "helpers/common/failure.h"
#include "helpers/driver/drive_pass.h"
#include "helpers/driver/io_memory.h"
#include "helpers/driver/samples.h"
#include "tests/support/model_drive.h"

#include <QTest>

#include <cerrno>
#include <map>
#include <set>

namespace {

constexpr std::uint32_t kSectorBytes = 16; // enough here, and quick
constexpr std::uint64_t kSectors = 1 << 20;

using Access = TargetDevice::Access;

RunPlan plan_for(std::uint64_t sectors, Verification verification = Verification::Tenth)
{
    return {.name = "drive",
            .access = Access::Write,
            .sizeBytes = sectors * kSectorBytes,
            .sectorSizeBytes = kSectorBytes,
            .stepBytes = 256 * kSectorBytes,
            .verification = verification};
}

} // namespace

class DrivePassTest : public QObject {
    Q_OBJECT

    std::vector<unsigned> percents_; // of the last run

    // The failure's message, or nothing.
    QByteArray run(const RunPlan& plan, ModelDrive& drive)
    {
        IoMemory memory(plan, "VANTRELL");
        percents_.clear();
        try {
            DrivePass(plan, memory, drive, [&](unsigned percent) {
                percents_.push_back(percent);
            }).run();
        } catch (const Failure& failure) {
            return failure.what();
        }
        return {};
    }

    [[nodiscard]] static bool isErased(const ModelDrive& drive)
    {
        const QByteArray content(drive.content().data(), qsizetype(drive.content().size()));
        return content == QByteArray("VANTRELL").repeated(content.size() / 8);
    }

private slots:
    void samples()
    {
        const RunPlan plan = plan_for(1049000);
        const auto ranges = ranges_to_read_back(plan, sectors_to_mark(plan));
        const std::uint64_t read = total_bytes(ranges);
        QVERIFY(read >= plan.sizeBytes / 10 && read < plan.sizeBytes * 11 / 100);
        QVERIFY(ranges.front().offsetBytes == 0 && ranges.back().end() == plan.sizeBytes);
        // Of each subsection at least a tenth.
        std::vector<std::uint64_t> sectors(1000);
        std::uint64_t end = 0;
        for (const ByteRange& range : ranges) {
            QVERIFY(range.offsetBytes >= end);
            end = range.end();
            for (std::uint64_t byte = range.offsetBytes; byte < end; byte += kSectorBytes) {
                ++sectors[byte * 1000 / plan.sizeBytes];
            }
        }
        for (const std::uint64_t count : sectors) {
            QVERIFY2(count >= 105, qPrintable(QString::number(count)));
        }
    }

    void liars_data()
    {
        QTest::addColumn<std::function<std::uint64_t(std::uint64_t)>>("place");
        QTest::addColumn<int>("cached");
        const auto row = [](const char* name, std::function<std::uint64_t(std::uint64_t)> place,
                            std::uint64_t cached = 0) {
            QTest::newRow(name) << std::move(place) << int(cached);
        };
        row("a hundredth lost", [](auto s) { return s / 10485 == 50 ? kSectors : s; });
        row("every ten thousandth lost", [](auto s) { return s % 10000 == 77 ? kSectors : s; });
        row(
            "full after 97 %", [](auto s) { return s % (kSectors / 100 * 97); }, kSectors / 67);
        row(
            "full after 99 %, goes on in the middle",
            [](auto s) { return s < kSectors / 100 * 99 ? s : s - kSectors / 2; }, kSectors / 200);
    }
    void liars()
    {
        using Place = std::function<std::uint64_t(std::uint64_t)>;
        QFETCH(Place, place);
        QFETCH(int, cached);
        for (int times = 0; times < 5; ++times) {
            ModelDrive drive(kSectors, kSectorBytes,
                             {.place = place, .cachedSectors = static_cast<std::uint64_t>(cached)});
            const QByteArray message = run(plan_for(kSectors), drive);
            QVERIFY2(message.startsWith("drive: read back: ") &&
                         message.contains("do not hold what was written"),
                     message);
            QVERIFY(percents_.back() < 100);
        }
    }

    void progress()
    {
        ModelDrive drive(kSectors, kSectorBytes, {});
        QCOMPARE(run(plan_for(kSectors, Verification::Full), drive), "");
        QVERIFY(isErased(drive));
        QVERIFY(percents_.size() > 20 && std::ranges::is_sorted(percents_));
        QCOMPARE(percents_.front(), 0U);
        QCOMPARE(percents_.back(), 100U);
        QCOMPARE(std::ranges::count(percents_, 50U), 1); // written
    }

    // The speed of a made-up drive by request size and depth, in GB/s. It is told after the changes
    // of speed that the run sees.
    void tuner_data()
    {
        QTest::addColumn<std::vector<std::vector<double>>>("speeds"); // of a third of the run each
        QTest::addColumn<std::vector<int>>("chosen");
        using Speeds = std::vector<std::vector<double>>;
        using Chosen = std::vector<int>;
        QTest::newRow("alike") << Speeds{{1, 1.02, 1.03}} << Chosen{0, 0, 0};
        QTest::newRow("many small ones") << Speeds{{1, 1.1, 1.3}} << Chosen{2, 2, 2};
        QTest::newRow("very different") << Speeds{{1, 20, 0.01}} << Chosen{1, 1, 1};
        QTest::newRow("another later") << Speeds{{1, 2, 1}, {0.5, 0.2, 1}} << Chosen{1, 2, 2};
        QTest::newRow("slower later") << Speeds{{1, 2, 1}, {0.3, 0.6, 0.3}} << Chosen{1, 1, 1};
    }
    void tuner()
    {
        using Speeds = std::vector<std::vector<double>>;
        QFETCH(Speeds, speeds);
        QFETCH(std::vector<int>, chosen);
        constexpr std::uint64_t kTotal = 60ULL << 30U;
        const std::vector<Pace> paces{{1 << 20, 8}, {1 << 20, 2}, {1 << 17, 32}};
        double seconds = 0;
        Tuner tuner(paces, kTotal, [&] { return seconds; });
        Pace pace = tuner.choose();
        double best = 0; // seconds of the best paces
        int looks = 0;   // in this third of the run
        for (std::uint64_t done = 0; done < kTotal; done += pace.requestBytes) {
            const std::size_t third = done / (kTotal / 3 + 1);
            const auto& now = speeds.at(std::min(third, speeds.size() - 1));
            const std::size_t index = std::size_t(std::ranges::find(paces, pace) - paces.begin());
            seconds += pace.requestBytes / 1e9 / now.at(index);
            best += pace.requestBytes / 1e9 / std::ranges::max(now);
            tuner.finished(pace.requestBytes);
            const bool isLate = done % (kTotal / 3) > kTotal / 4;
            if (isLate && !tuner.isDue() && looks++ == 0) {
                QCOMPARE(int(index), chosen.at(third));
            }
            looks = isLate ? looks : 0;
            if (tuner.isDue()) {
                pace = tuner.choose();
            }
        }
        QVERIFY2(best / seconds > 0.94, qPrintable(QString::number(best / seconds)));
    }

    // A part of the requests fails so often, each sector counted for itself.
    void failures_data()
    {
        QTest::addColumn<int>("access");
        QTest::addColumn<int>("times");
        QTest::addColumn<QByteArray>("message");
        const auto row = [](const char* name, Access access, int times, const char* message) {
            QTest::newRow(name) << int(access) << times << QByteArray(message);
        };
        row("writing fails once", Access::Write, 1, "");
        row("writing fails twice", Access::Write, 2, "");
        row("writing fails always", Access::Write, 1 << 30,
            "4 sectors could not be written, first at sector 0 of drive: Input/output error");
        row("reading fails twice", Access::Read, 2, "");
        row("reading fails always", Access::Read, 1 << 30,
            "drive: read back: 4 of the 70000 sectors looked at could not be read, first at sector "
            "0: Input/output error");
    }
    void failures()
    {
        QFETCH(int, access);
        QFETCH(int, times);
        QFETCH(QByteArray, message);
        // Of three in one step the last fails first when it is tried alone.
        const std::vector<std::uint64_t> sectors{0, 40000, times == 1 ? 40001U : 50000U,
                                                 times == 1 ? 40002U : 69999U};
        std::map<std::uint64_t, int> tries;
        const auto error = [&](const IoRequest& request) {
            for (const std::uint64_t sector : sectors) {
                const std::uint64_t byte = sector * kSectorBytes;
                if (request.access == Access(access) && byte >= request.offsetBytes &&
                    byte < request.offsetBytes + request.lengthBytes && tries[sector]++ < times) {
                    return EIO;
                }
            }
            return 0;
        };
        ModelDrive drive(70000, kSectorBytes, {.error = error});
        QCOMPARE(run(plan_for(70000), drive), message);
        QCOMPARE(isErased(drive), !message.contains("written"));
        QCOMPARE(percents_.back() == 100, message.isEmpty());
    }

    // What the kernel may still read into or write from is not used again.
    void givenUpMemory()
    {
        ModelDrive* given = nullptr;
        std::set<const char*> before;
        int requests = 0;
        int shared = 0;
        const auto error = [&](const IoRequest& request) {
            if (request.access == Access::Read && ++requests == 20) {
                given->giveUp();
            }
            if (request.access == Access::Read && requests < 20) {
                before.insert(request.memory);
            } else if (requests > 28) { // less may have been on their way
                shared += before.contains(request.memory) ? 1 : 0;
            }
            return 0;
        };
        ModelDrive drive(kSectors * 2, kSectorBytes, {.error = error});
        given = &drive;
        QCOMPARE(run(plan_for(kSectors * 2, Verification::Full), drive), "");
        QVERIFY(isErased(drive) && requests > 40);
        QCOMPARE(shared, 0);
    }
};

QTEST_GUILESS_MAIN(DrivePassTest)
#include "drive_pass_test.moc"
