// Captures and retrievals through the registered component, on the reference platform, for archives of several sizes,
// and their single steps.
#include "QXKeldan.h"
#include "VornaLib.h"
#include "bench/Bench.h"
#include "bench/InstalledPlatform.h"
#include "common/com/bstr.h"
#include "common/services/XmlAccessor.h"
#include "common/services/platformservices.h"
#include "common/sparse/SparseXml.h"
#include "persist/SubscriptionPersistance.h"
#include "subscription/archive/SamAccessor.h"
#include "subscription/archive/SubscriptionArchive.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

using namespace vorna;

namespace {

constexpr int SIZES[] = {1, 10, 100, 1000};

std::string Part(int part) {
    const std::string number = std::to_string(part);
    return "<Part n=\"" + number + "\"><Name>axis drive " + number + "</Name><Temperature>" +
           std::to_string(30 + part * 37 % 50) + "</Temperature><Hours>" + std::to_string(part * 7919) +
           "</Hours></Part>";
}

// About 10,000 characters, the data of a device with a few dozen parts.
std::string DeviceDocument() {
    std::string document = "<Data><Status><State>running</State></Status><Parts>";
    for (int part = 1; document.size() < 10'000; ++part)
        document += Part(part);
    return document + "</Parts></Data>";
}

SYSTEMTIME MinutesAgo(int minutes) {
    SYSTEMTIME time = LocalNow();
    FILETIME file;
    SystemTimeToFileTime(&time, &file);
    ULARGE_INTEGER ticks{{file.dwLowDateTime, file.dwHighDateTime}};
    ticks.QuadPart -= static_cast<ULONGLONG>(minutes) * 600'000'000;
    file = {ticks.LowPart, ticks.HighPart};
    FileTimeToSystemTime(&file, &time);
    return time;
}

// A capture in the same second would replace the last snapshot instead of adding one.
void WaitForNextSecond() {
    const WORD second = LocalNow().wSecond;
    while (LocalNow().wSecond == second)
        Sleep(5);
}

std::wstring Name(int size) {
    return L"A" + std::to_wstring(size);
}

// Archives of one service, filled without waiting for the timer. The destructor ends them.
class Archives {
  public:
    Archives() {
        std::filesystem::create_directories(platform_.Folder() / "models");
        std::ofstream(platform_.Folder() / "models" / "press+press-7+7.xml") << DeviceDocument();
        com_ptr<IZEBServiceFactory> factory;
        bench::Require(PlatformServices::CreateInstance(PROGID_SERVICE_FACTORY, nullptr, factory), "service factory");
        bench::Require(
            factory->CreateService(bstr(support::ServiceDocument(L"7", L"press", L"press-7")).get(), service_.put()),
            "service");
        bench::Require(PlatformServices::CreateInstance(PROGID_VORNA, nullptr, component_), "component");
        for (int size : SIZES) {
            SetData(size, L"ON");
            Fill(size);
        }
    }
    ~Archives() {
        try {
            for (int size : SIZES)
                SetData(size, L"OFF");
        } catch (const std::exception& error) {
            std::fprintf(stderr, "an archive was not ended: %s\n", error.what());
        }
    }
    Archives(const Archives&) = delete;
    Archives& operator=(const Archives&) = delete;

    SubscriptionRecord Record(int size) {
        SubscriptionRecord record;
        bench::Require(SubscriptionPersistance().GetSubscription(L"press\\press-7\\7\\" + Name(size), record),
                       "GetSubscription");
        return record;
    }

    // The milliseconds of one callback of the timer. The capture is removed again.
    double Capture(int size) {
        const SubscriptionRecord record = Record(size);
        const bstr event(L"<TimerEvent><SubscriptionID>" + record.subscriptionId + L"</SubscriptionID><ClientCookie>" +
                         record.clientCookie + L"</ClientCookie></TimerEvent>");
        const com_ptr<IComBaseClient> client = component_.try_as<IComBaseClient>();
        WaitForNextSecond();
        const double took = bench::Milliseconds([&] {
            bstr text;
            bench::Require(client->Deliver(event.get(), text.put()), "Deliver");
        });
        const auto snapShots = Record(size).snapShots;
        if (snapShots.size() != static_cast<size_t>(size) + 1)
            throw std::runtime_error("the capture was not recorded");
        const std::wstring& id = snapShots.back().id;
        SamAccessor archive(record.Archive().SnapShotsPath(), id);
        bench::Require(archive.removeFile(), "removeFile");
        if (SubscriptionPersistance().DeleteSnapShot(record.Archive(), id) != 1)
            throw std::runtime_error("the capture was not removed");
        return took;
    }

    // The size of the result in bytes. rest: the path after the step of the archive.
    size_t Retrieve(int size, const std::wstring& rest) {
        bstr text, document;
        bench::Require(component_->GetData(service_.get(), bstr(L"/Archive[@ID='" + Name(size) + L"']" + rest).get(),
                                           bstr(L"").get(), text.put(), document.put()),
                       "GetData");
        return document.view().size() * sizeof(wchar_t);
    }

  private:
    void SetData(int size, const wchar_t* collect) {
        // The timer does not tick during the measurement, and no snapshot is removed.
        const std::wstring document =
            L"<Archive ID=\"" + Name(size) + L"\"><Collect>" + collect +
            L"</Collect><DataManagement><MaxStorageSize Units=\"NUMFILES\">1000000</MaxStorageSize></DataManagement>"
            L"<Timer><XMLDataModel><XPath>/Data</XPath><XDMPrefixes>xmlns:a='urn:a'</XDMPrefixes></XMLDataModel>"
            L"<Frequency>P0Y1M0DT0H0M0S</Frequency></Timer></Archive>";
        bstr text;
        const HRESULT result = component_->SetData(service_.get(), bstr(document).get(), 0, text.put());
        bench::Require(result, ("SetData: " + support::Narrow(text.view())).c_str());
    }

    // Inserts older captures before the first one, with one write of the index.
    void Fill(int size) {
        const SubscriptionRecord record = Record(size);
        if (record.snapShots.size() != 1)
            throw std::runtime_error("no first capture");
        SamAccessor archive(record.Archive().SnapShotsPath(), record.snapShots.front().id);
        bstr data;
        bench::Require(archive.getStreamFromArchive(data), "the first capture");
        std::wstring index = L"<SnapShots>";
        std::wstring entry;
        for (int minutes = size - 1; minutes > 0; --minutes) {
            const SnapShot snapShot(MinutesAgo(minutes));
            archive.SetFileName(snapShot.id);
            bench::Require(archive.addStreamToArchive(data.view()), "filling an archive");
            snapShot.ToXML(entry);
            index += entry;
        }
        record.snapShots.front().ToXML(entry);
        SamAccessor config(record.Archive().ConfigPath(), record.Archive().IndexStream());
        bench::Require(config.addStreamToArchive(index + entry + L"</SnapShots>"), "writing an index");
    }

    bench::InstalledPlatform platform_;
    com_ptr<IUnknown> service_;
    com_ptr<IXDMAccessEx> component_;
};

// Small archives are read several times in a round, for the resolution of the clock.
int Repetitions(int size) {
    return std::clamp(100 / size, 1, 10);
}

void MeasureCaptures(const bench::Report& report, Archives& archives) {
    std::vector<double> times[std::size(SIZES)];
    for (int round = 0; round < 7; ++round)
        for (size_t i = 0; i < std::size(SIZES); ++i)
            times[i].push_back(archives.Capture(SIZES[i]));
    for (size_t i = 0; i < std::size(SIZES); ++i)
        report.Figure("capture, archive of " + std::to_string(SIZES[i]), bench::Median(times[i]), "ms");
}

void MeasureRetrievals(const bench::Report& report, Archives& archives, const std::string& what,
                       const std::wstring& rest) {
    size_t bytes[std::size(SIZES)] = {};
    std::vector<bench::Candidate> candidates;
    for (size_t i = 0; i < std::size(SIZES); ++i)
        candidates.push_back({std::to_string(SIZES[i]), [&, i] {
                                  for (int turn = Repetitions(SIZES[i]); turn > 0; --turn)
                                      bytes[i] = archives.Retrieve(SIZES[i], rest);
                              }});
    const auto times = bench::Measure(candidates, {.operations = 1, .rounds = 5});
    double perByte[std::size(SIZES)];
    for (size_t i = 0; i < std::size(SIZES); ++i) {
        const double nanoseconds = times[i] / Repetitions(SIZES[i]);
        perByte[i] = nanoseconds / static_cast<double>(bytes[i]);
        const std::string name = what + " of " + std::to_string(SIZES[i]);
        report.Figure(name, nanoseconds / 1e6, "ms");
        report.Figure(name + ", a byte returned", perByte[i], "ns");
    }
    report.AtMost(what + ", a byte at 1000 to one at 10", perByte[3] / perByte[1], 1.5, "times");
}

} // namespace

VORNA_BENCH(Component) {
    Archives archives;
    MeasureCaptures(report, archives);
    MeasureRetrievals(report, archives, "small node", L"/Data/Status/State");
    MeasureRetrievals(report, archives, "all nodes", L"/*");
}

// The single steps of a capture and of a retrieval, in this process.
VORNA_BENCH(ComponentPieces) {
    Archives archives;
    const int size = 1000;
    const SubscriptionRecord record = archives.Record(size);
    const std::wstring path = record.Archive().SnapShotsPath();
    const auto figure = [&](const std::string& what, int rounds, const std::function<void()>& work) {
        std::vector<double> times(static_cast<size_t>(rounds));
        for (double& time : times)
            time = bench::Milliseconds(work);
        report.Figure(what, bench::Median(times), "ms");
    };
    // An unchanged text would not be written, so every other one has a space at its end.
    int turn = 0;
    const auto other = [&](const bstr& text) { return text.str() + (++turn % 2 ? L" " : L""); };
    com_ptr<ISecureArchiveManager> manager;
    figure("making an archive manager by ProgID", 51, [&] {
        bench::Require(PlatformServices::CreateInstance(PROGID_ARCHIVE_MANAGER, nullptr, manager), "CreateInstance");
    });
    figure("making an archive manager by CLSID", 51, [&] {
        manager.reset();
        bench::Require(CoCreateInstance(__uuidof(ZEBSecureArchiveManager), nullptr, CLSCTX_INPROC_SERVER,
                                        __uuidof(ISecureArchiveManager), manager.put_void()),
                       "CoCreateInstance");
    });
    XmlAccessor accessor;
    figure("making an XML accessor by ProgID", 51, [&] { bench::Require(XmlAccessor().Create(), "XML accessor"); });
    figure("the record with 1000 entries", 5, [&] { (void)archives.Record(size); });
    figure("the record with 1 entry", 21, [&] { (void)archives.Record(1); });
    bstr index;
    SamAccessor config(record.Archive().ConfigPath(), record.Archive().IndexStream());
    figure("reading the index stream of 1000", 11,
           [&] { bench::Require(config.getStreamFromArchive(index), "reading the index"); });
    figure("writing the index stream of 1000", 11,
           [&] { bench::Require(config.addStreamToArchive(other(index)), "writing the index"); });
    bench::Require(accessor.Create(), "XML accessor");
    figure("parsing the index of 1000", 11, [&] { bench::Require(accessor.Load(index.view()), "parsing the index"); });
    figure("parsing 1000 entries one by one", 5, [&] {
        for (const SnapShot& snapShot : record.snapShots) {
            std::wstring xml;
            snapShot.ToXML(xml);
            bench::Keep(SnapShot(xml, accessor));
        }
    });
    SnapShot last = record.snapShots.back();
    figure("an entry in the index of 1000", 11,
           [&] { bench::Require(SubscriptionPersistance().AddSnapShot(record.Archive(), last), "AddSnapShot"); });
    figure("marking 1000 entries as read", 5, [&] {
        bench::Require(SubscriptionPersistance().RefreshSnapShots(record.Archive(), record.snapShots),
                       "RefreshSnapShots");
    });
    bstr data;
    SamAccessor archive(path);
    figure("reading 1000 streams", 5, [&] {
        for (const SnapShot& snapShot : record.snapShots) {
            archive.SetFileName(snapShot.id);
            bench::Require(archive.getStreamFromArchive(data), "reading a stream");
        }
    });
    figure("a lock taken 1000 times", 5, [&] {
        for (int i = 0; i < size; ++i) {
            const NamedLock lock = record.Archive().Lock();
            bench::Keep(lock);
        }
    });
    std::wstring cut;
    for (const auto& [what, xpath] : {std::pair{"a small node", L"/Data/Status/State"}, std::pair{"all nodes", L"/*"}})
        figure(std::string("cutting ") + what + " out of 1000 documents", 3, [&, expression = xpath] {
            for (int i = 0; i < size; ++i)
                VORNAUTILITY::GetSparseXMLFromXPath(data.view(), expression, cut);
        });
    figure("storing a stream in an archive of 1000", 11, [&] {
        archive.SetFileName(record.snapShots.back().id);
        bench::Require(archive.addStreamToArchive(other(data)), "storing a stream");
    });
}
