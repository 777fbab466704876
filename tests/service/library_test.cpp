// The library as it is built: what it shows, what it leaves behind, and every flow that a client
// can take, with its answers and its log.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/death_registry.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <thread>

#include "loaded_service.h"
#include "log_capture.h"
#include "sample_databases.h"
#include "temporary_directory.h"

using android::sp;
using testing::ElementsAreArray;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezoneCallback;
namespace fs = std::filesystem;

// The class behind the shared instance, of which clients see the interface only.
namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {
class Offlinetimezone;
}
namespace implementation = vendor::quor::hardware::offlinetimezone::V1_0::implementation;

namespace {

const char kActive[] = "offlinetz/lastcombinedTimezone.bin";
const char kBackup[] = "offlinetz/lastcombinedTimezonebackup.bin";

using Lines = std::vector<std::string>;

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// --- What it shows -----------------------------------------------------------------------

std::set<std::string> DynamicSymbols(const std::string& library) {
    const std::string command = "nm -D --defined-only '" + library + "' | cut -d ' ' -f 3-";
    FILE* pipe = popen(command.c_str(), "r");
    std::set<std::string> symbols;
    char line[512];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        symbols.insert(std::string(line, std::strcspn(line, "\n")));
    }
    pclose(pipe);
    return symbols;
}

TEST(Library, ShowsItsInterfaceAndNothingElse) {
    const std::string scope = "N6vendor4quor8hardware15offlinetimezone4V1_014implementation";
    const std::string callback = scope + "23OfflinetimezoneCallback";
    const std::set<std::string> expected = {
            "HIDL_FETCH_IOfflinetimezone",
            "FaultHandler",
            "GetEtcAreaTimezone",
            "SHA1Input",
            "SHA1PadMessage",
            "SHA1ProcessMessageBlock",
            "SHA1Reset",
            "SHA1Result",
            "ZDCloseDatabase",
            "ZDFreeResults",
            "ZDGetChecksum",
            "ZDGetLength",
            "ZDGetMapping",
            "ZDGetNotice",
            "ZDGetTableType",
            "ZDLookup",
            "ZDLookupResultToString",
            "ZDOpenDatabase",
            "ZDgetDBVersion",
            "_Z" + scope + "15Offlinetimezone11getInstanceEv",
            "_Z" + scope + "12WorkerThread11GetThreadIdEv",
            "_Z" + scope + "12WorkerThread12GetMsgLengthEv",
            "_Z" + scope + "12WorkerThread18GetCurrentThreadIdEv",
            "_Z" + callback + "16timeZoneIdReportERKN7android8hardware11hidl_stringESA_SA_",
            "_ZTV" + callback + "E",
            "_ZTT" + callback + "E",
            "_ZTI" + callback + "E",
            "_ZTS" + callback + "E"};
    EXPECT_EQ(expected, DynamicSymbols(OFFLINETZ_LIBRARY));
}

// The slot of a virtual function, as a client built elsewhere calls it.
template <typename Function>
size_t SlotOf(Function function) {
    size_t offset;
    std::memcpy(&offset, &function, sizeof offset);
    return (offset - 1) / sizeof(void*);
}

TEST(Library, KeepsTheSlotOrder) {
    using android::hardware::hidl_death_recipient;
    using android::hidl::base::V1_0::IBase;
    const size_t base[] = {SlotOf(&IBase::isRemote),     SlotOf(&IBase::interfaceChain),
                           SlotOf(&IBase::debug),        SlotOf(&IBase::interfaceDescriptor),
                           SlotOf(&IBase::getHashChain), SlotOf(&IBase::setHALInstrumentation),
                           SlotOf(&IBase::linkToDeath),  SlotOf(&IBase::ping),
                           SlotOf(&IBase::getDebugInfo), SlotOf(&IBase::notifySyspropsChanged),
                           SlotOf(&IBase::unlinkToDeath)};
    for (size_t i = 0; i < 11; ++i)
        EXPECT_EQ(i, base[i]);
    // The destructor takes the two slots between.
    const size_t service[] = {
            SlotOf(&IOfflinetimezone::startLookup),     SlotOf(&IOfflinetimezone::stopLookup),
            SlotOf(&IOfflinetimezone::Lookup),          SlotOf(&IOfflinetimezone::getDBVersion),
            SlotOf(&IOfflinetimezone::getServerStatus), SlotOf(&IOfflinetimezone::downloadDB),
            SlotOf(&IOfflinetimezone::injectDB)};
    for (size_t i = 0; i < 7; ++i)
        EXPECT_EQ(13 + i, service[i]);
    EXPECT_EQ(13u, SlotOf(&IOfflinetimezoneCallback::timeZoneIdReport));
    EXPECT_EQ(0u, SlotOf(&hidl_death_recipient::serviceDied));
}

// --- Flows -------------------------------------------------------------------------------

class FlowTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directory("offlinetz"); }

    // What was logged under a tag since the last call, with the parts that differ from run to
    // run made alike.
    static Lines Tagged(const std::vector<LogLine>& lines, const std::vector<std::string>& tags) {
        static const std::regex kTime("starttime: [0-9]+!");
        static const std::regex kAddress("who: 0x[0-9a-f]+");
        Lines tagged;
        for (const LogLine& line : lines) {
            if (std::find(tags.begin(), tags.end(), line.tag) == tags.end()) continue;
            tagged.push_back(
                    std::to_string(line.priority) + " " +
                    std::regex_replace(std::regex_replace(line.message, kTime, "starttime: T!"),
                                       kAddress, "who: P"));
        }
        return tagged;
    }

    TemporaryDirectory mDirectory;
    LogCapture mLog;
};

const Lines kFetched = {"6 HIDL_FETCH_IOfflinetimezone HIDL init", "6 Offlinetimezone init !"};
const Lines kStarted = {"4 setup call back in service!"};
const Lines kExit = {"4 Exit thread on "};

std::string LookupLine(const std::string& lat, const std::string& lon) {
    return "4 lookup Lat : " + lat + " , Lon : " + lon + " pid : " + std::to_string(getpid()) +
           " starttime: T!";
}

std::string HexLine(const uint8_t* digest) {
    std::string line = "4 ";
    char text[4];
    for (int i = 0; i < 20; ++i) {
        std::snprintf(text, sizeof text, "%02x ", digest[i]);
        line += text;
    }
    return line;
}

// The worker's lines for a file that verifies, and for its opening.
Lines PassLines(const Bytes& file) {
    const std::string digest = HexLine(&file[file.size() - 20]);
    return {"4 open file " + std::string(kActive) + " length " + std::to_string(file.size()),
            "4 sha1 value read from file : ",
            digest,
            "4 sha1 value cal from file content : ",
            digest,
            "4 DB pass "};
}
const Lines kOpen = {"4 Try to OpenDB offlinetz/lastcombinedTimezone.bin\n"};

Lines ZoneLines(const std::string& lat, const std::string& lon, const std::string& floats,
                const std::string& zone, const std::string& safezone) {
    return {"4 MsgData : Lat : " + lat + " Lon : " + lon + " ",
            "4 MsgData : " + floats + " ",
            "4 input lat : " + floats.substr(6, floats.find(" Lon") - 6) +
                    ", long : " + floats.substr(floats.find("Lon : ") + 6) + " \n",
            "4 TimezoneId: " + zone + " \"\n",
            "4 lookup results : " + zone + " ",
            "4 Safezone: " + safezone + "\n",
            "4 start to call back from hidl"};
}

Lines NotSupportedLines(const std::string& lat, const std::string& lon) {
    return {"4 MsgData : Lat : " + lat + " Lon : " + lon + " ",
            "4 This server is not supported anyway!"};
}

Lines ChunkLines(size_t size, int status) {
    return {"6 injectDB data : size : " + std::to_string(size) + " ,  data.size() : " +
                    std::to_string(size) + " status: " + std::to_string(status),
            "6 new injectDB data  size() : " + std::to_string(size) +
                    " status: " + std::to_string(status)};
}

Lines EndLines() {
    return {"6 injectDB data : size : 0 ,  data.size() : 0 status: 3", "6 Should be end part!",
            "6 new injectDB data  size() : 0 status: 3"};
}

Lines ReceivedLines(size_t total, bool first) {
    Lines lines = {"4 MSG_DOWNLOAD_DATA "};
    if (first) lines.push_back("4 injectdb size : 0 ");
    lines.push_back("4 total inject db size : " + std::to_string(total));
    return lines;
}

const Lines kWritten = {"4 start write it to backup ", "4 open  file  Success",
                        "4 after  write it to backup Success"};

std::string CopiedLine(const Bytes& file) {
    return "4 read file " + std::string(kBackup) + " last " + std::to_string(file.size() % 4096);
}

TEST_F(FlowTest, LogsEachStepInOrder) {
    const Bytes a = SampleDatabase("\"Zone/A\"", 1);
    const Bytes b = SampleDatabase("\"Zone/B\"", 2);
    const Bytes junk = WithTrailer(Bytes(40, 'x'));
    Bytes damaged = b;
    damaged[9] ^= 4;
    const Lines opened = PassLines(a) + kOpen;
    const Lines lookupA =
            ZoneLines("1", "2", "Lat : 1.000000 Lon : 2.000000", "\"Zone/A\"", "0.999928");
    const Lines lookupB =
            ZoneLines("1", "2", "Lat : 1.000000 Lon : 2.000000", "\"Zone/B\"", "0.999928");
    const auto half = b.size() / 2 + 1;
    const Lines sent = ChunkLines(half, 1) + ChunkLines(b.size() - half, 2) + EndLines();
    const Lines received = ReceivedLines(half, true) + ReceivedLines(b.size(), false) +
                           ReceivedLines(b.size(), false);
    const Lines notFinished = {"4 MSG_INJECT_DB ", "4 db donwload not finished ",
                               "4 clear the data  : 0 "};

    struct Flow {
        const char* what;
        bool hasDatabase;
        std::function<void(LoadedService&, const sp<Recorder>&)> run;
        Lines front;
        Lines worker;
        std::vector<ClientReport> reports;
    };
    const Flow flows[] = {
            {"fetched and left", true, [](LoadedService&, const sp<Recorder>&) {}, {}, {}, {}},
            {"an empty callback",
             true,
             [](LoadedService& service, const sp<Recorder>&) {
                 EXPECT_FALSE(service->startLookup(nullptr));
                 EXPECT_FALSE(service->stopLookup(nullptr));
             },
             {},
             {},
             {}},
            {"a lookup before any start",
             true,
             [](LoadedService& service, const sp<Recorder>&) {
                 EXPECT_FALSE(service->Lookup("1", "2"));
             },
             {LookupLine("1", "2")},
             NotSupportedLines("1", "2"),
             {}},
            {"a lookup",
             true,
             [](LoadedService& service, const sp<Recorder>& client) {
                 EXPECT_TRUE(service->startLookup(client));
                 EXPECT_FALSE(service->Lookup("1", "2"));
             },
             kStarted + Lines{LookupLine("1", "2")},
             opened + lookupA,
             {{"1", "2", "\"Zone/A\""}}},
            {"two empty texts, text behind a number, the open sea",
             true,
             [](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service->Lookup("", "");
                 service->Lookup("-12.5abc", " 40");
             },
             kStarted + Lines{LookupLine("", ""), LookupLine("-12.5abc", " 40")},
             opened + Lines{"4 MsgData : Lat :  Lon :  ", "4 start to call back from hidl",
                            "4 MsgData : Lat : -12.5abc Lon :  40 ",
                            "4 MsgData : Lat : -12.500000 Lon : 40.000000 ",
                            "4 input lat : -12.500000, long : 40.000000 \n",
                            "4 Try to get time zone from etc area!",
                            "4 Etc time zone : \"Etc/GMT-3\" ", "4 start to call back from hidl"},
             {{"", "", "\"error:error input\""}, {"-12.5abc", " 40", "\"Etc/GMT-3\""}}},
            {"no database",
             false,
             [](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service->Lookup("1", "2");
                 EXPECT_TRUE(service.WaitForStatus(3));
             },
             kStarted + Lines{LookupLine("1", "2")},
             Lines{"4 open file " + std::string(kActive) + " failed No such file or directory",
                   "4 open file " + std::string(kBackup) + " failed No such file or directory",
                   "4 -------- Copy BACKUP DB failed--------", "4 try to open db again !",
                   "4 open file " + std::string(kActive) + " failed No such file or directory",
                   "4 --------  BACKUP DB is destroy also--------"} +
                     NotSupportedLines("1", "2"),
             {{"1", "2", "error:Server is not supportted"}}},
            {"started twice, stopped, still reported to",
             true,
             [](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service->startLookup(client);
                 EXPECT_FALSE(service->stopLookup(client));
                 service->Lookup("1", "2");
             },
             kStarted + kStarted + Lines{LookupLine("1", "2")},
             opened + Lines{"4 server is running "} + lookupA,
             {{"1", "2", "\"Zone/A\""}}},
            {"the client dies",
             true,
             [](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service->Lookup("1", "2");
                 EXPECT_TRUE(client->WaitFor(1));
                 host::EndOwnerOf(client);
                 host::EndOwnerOf(client);  // The link is gone.
                 service->Lookup("1", "2");
             },
             kStarted + Lines{LookupLine("1", "2"),
                              "3 serviceDied service died. cookie: 99, who: P",
                              LookupLine("1", "2")},
             opened + lookupA + lookupA + Lines{"4 mCb is null,please check if server dead"},
             {{"1", "2", "\"Zone/A\""}}},
            {"a database is replaced, twice from one download",
             true,
             [&](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 EXPECT_TRUE(service.WaitForStatus(1));
                 EXPECT_EQ(1, static_cast<int32_t>(service->getDBVersion()));
                 service.Send(b, half);
                 EXPECT_TRUE(service->injectDB());
                 service->injectDB();
                 service->Lookup("1", "2");
                 EXPECT_TRUE(client->WaitFor(1));
                 EXPECT_EQ(2, static_cast<int32_t>(service->getDBVersion()));
                 EXPECT_EQ(b, ReadFile(kActive));
                 EXPECT_EQ(b, ReadFile(kBackup));
             },
             kStarted + sent + Lines{LookupLine("1", "2")},
             opened + received + kWritten + Lines{"4 MSG_INJECT_DB ", CopiedLine(b)} +
                     PassLines(b) + kOpen + Lines{"4 MSG_INJECT_DB ", CopiedLine(b)} +
                     PassLines(b) + kOpen + lookupB,
             {{"1", "2", "\"Zone/B\""}}},
            {"an injection asked for too early",
             true,
             [&](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service->injectDB();
                 service->downloadDB(b, 9, 9, 1);  // The size lies; only the log shows it.
                 service->injectDB();
                 service->downloadDB({}, 0, static_cast<uint32_t>(b.size()), 3);
                 service->Lookup("1", "2");
                 EXPECT_TRUE(client->WaitFor(1));
                 EXPECT_EQ(1, static_cast<int32_t>(service->getServerStatus()));
                 EXPECT_EQ(a, ReadFile(kActive));
                 EXPECT_FALSE(fs::exists(kBackup));
             },
             kStarted +
                     Lines{"6 injectDB data : size : 9 ,  data.size() : " +
                                   std::to_string(b.size()) + " status: 1",
                           "6 new injectDB data  size() : " + std::to_string(b.size()) +
                                   " status: 1"} +
                     EndLines() + Lines{LookupLine("1", "2")},
             opened + notFinished + ReceivedLines(b.size(), true) + notFinished +
                     ReceivedLines(0, false) +
                     Lines{"4 download DB data lost", "4 clear the data  : 0 "} + lookupA,
             {{"1", "2", "\"Zone/A\""}}},
            {"a damaged database is injected",
             true,
             [&](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service.Send(damaged, damaged.size());
                 service->injectDB();
                 service->Lookup("1", "2");
                 EXPECT_TRUE(client->WaitFor(1));
                 EXPECT_EQ(3, static_cast<int32_t>(service->getServerStatus()));
                 EXPECT_EQ(65535, static_cast<int32_t>(service->getDBVersion()));
             },
             kStarted + ChunkLines(b.size(), 1) + EndLines() + Lines{LookupLine("1", "2")},
             [&] {
                 Lines bad = PassLines(damaged);
                 Bytes whole = WithTrailer(Bytes(damaged.begin(), damaged.end() - 20));
                 bad[4] = HexLine(&whole[whole.size() - 20]);
                 bad[5] = "4 DB file destory----------- need recovery!";
                 return opened + ReceivedLines(b.size(), true) + ReceivedLines(b.size(), false) +
                        kWritten + Lines{"4 MSG_INJECT_DB ", CopiedLine(b)} + bad +
                        Lines{CopiedLine(b), "4 try to open db again !"} + bad +
                        Lines{"4 --------  BACKUP DB is destroy also--------"} +
                        NotSupportedLines("1", "2");
             }(),
             {{"1", "2", "error:Server is not supportted"}}},
            {"the backup is gone when it is injected, and a start repairs nothing but tries",
             true,
             [&](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service.Send(b, b.size());
                 service->Lookup("1", "2");
                 EXPECT_TRUE(client->WaitFor(1));
                 fs::remove(kBackup);
                 service->injectDB();
                 EXPECT_TRUE(service.WaitForStatus(3));
                 service->Lookup("1", "2");
                 service->startLookup(client);
                 service->Lookup("1", "2");
             },
             kStarted + ChunkLines(b.size(), 1) + EndLines() +
                     Lines{LookupLine("1", "2"), LookupLine("1", "2")} + kStarted +
                     Lines{LookupLine("1", "2")},
             opened + ReceivedLines(b.size(), true) + ReceivedLines(b.size(), false) + kWritten +
                     lookupA +
                     Lines{"4 MSG_INJECT_DB ",
                           "4 open file " + std::string(kBackup) +
                                   " failed No such file or directory",
                           "4 -------- Copy BACKUP DB failed--------"} +
                     NotSupportedLines("1", "2") + opened + lookupA,
             {{"1", "2", "\"Zone/A\""},
              {"1", "2", "error:Server is not supportted"},
              {"1", "2", "\"Zone/A\""}}},
            {"a file with a good trailer that is no database",
             true,
             [&](LoadedService& service, const sp<Recorder>& client) {
                 service->startLookup(client);
                 service.Send(junk, junk.size());
                 service->injectDB();
                 service->Lookup("1", "2");
                 EXPECT_TRUE(client->WaitFor(1));
                 EXPECT_EQ(1, static_cast<int32_t>(service->getServerStatus()));
                 EXPECT_EQ(65535, static_cast<int32_t>(service->getDBVersion()));
             },
             kStarted + ChunkLines(junk.size(), 1) + EndLines() + Lines{LookupLine("1", "2")},
             opened + ReceivedLines(junk.size(), true) + ReceivedLines(junk.size(), false) +
                     kWritten + Lines{"4 MSG_INJECT_DB ", CopiedLine(junk)} + PassLines(junk) +
                     kOpen +
                     Lines{"4 Open DB failed\n", "4 MsgData : Lat : 1 Lon : 2 ",
                           "4 MsgData : Lat : 1.000000 Lon : 2.000000 ",
                           "4 input lat : 1.000000, long : 2.000000 \n",
                           "4 start to call back from hidl"},
             {{"1", "2", "error:Server is not supportted"}}},
    };
    for (const Flow& flow : flows) {
        SCOPED_TRACE(flow.what);
        fs::remove(kActive);
        fs::remove(kBackup);
        if (flow.hasDatabase) WriteFile(kActive, a);
        const sp<Recorder> client = new Recorder;
        {
            LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
            EXPECT_EQ(65535, static_cast<int32_t>(service->getDBVersion()));
            EXPECT_EQ(0, static_cast<int32_t>(service->getServerStatus()));
            flow.run(service, client);
        }
        const std::vector<LogLine> lines = mLog.Take();
        EXPECT_THAT(Tagged(lines, {"OfflinetimezoneService"}),
                    ElementsAreArray(kFetched + flow.front));
        EXPECT_THAT(Tagged(lines, {"OfflinetimezoneThread", "OfflinetimezoneInterface"}),
                    ElementsAreArray(flow.worker + kExit));
        EXPECT_EQ(flow.reports, client->Reports());
    }
}

// Two clients: reports go to the first until any linked client dies.
TEST_F(FlowTest, KeepsOneClientAtATime) {
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 1));
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
    const sp<Recorder> a = new Recorder;
    const sp<Recorder> b = new Recorder;
    const auto ask = [&](const char* lat) { service->Lookup(lat, "0"); };
    service->startLookup(a);
    service->startLookup(b);
    service->stopLookup(a);  // Not the latest: changes nothing.
    ask("1");
    ASSERT_TRUE(a->WaitFor(1));
    const std::string unheard = "mCb is null,please check if server dead";
    host::EndOwnerOf(b);  // A stops receiving although it is alive.
    ask("2");
    ASSERT_TRUE(mLog.WaitFor(unheard, 1));
    service->startLookup(b);
    ask("3");
    ASSERT_TRUE(b->WaitFor(1));
    host::EndOwnerOf(a);  // A's link from the first start is still there.
    ask("4");
    ASSERT_TRUE(mLog.WaitFor(unheard, 2));
    service->startLookup(a);
    ask("5");
    ASSERT_TRUE(a->WaitFor(2));
    service.Unload();
    EXPECT_EQ("1", a->Reports()[0].lat);
    EXPECT_EQ("5", a->Reports()[1].lat);
    EXPECT_EQ(2u, a->Reports().size());
    EXPECT_EQ("3", b->Reports()[0].lat);
    EXPECT_EQ(1u, b->Reports().size());
}

// Service objects of one library are distinct and share the worker and its database.
TEST_F(FlowTest, ServiceObjectsShareOneWorker) {
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 1));
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
    const sp<Recorder> client = new Recorder;
    service->startLookup(client);
    service->Lookup("1", "2");
    ASSERT_TRUE(client->WaitFor(1));
    LoadedService::Interface* second = service.Fetch();
    const auto getInstance = service.Symbol<implementation::Offlinetimezone* (*)()>(
            "_ZN6vendor4quor8hardware15offlinetimezone4V1_014implementation15Offlinetimezone"
            "11getInstanceEv");
    LoadedService::Interface* shared[4] = {};
    std::vector<std::thread> threads;
    for (auto& instance : shared) {
        threads.emplace_back([&instance, getInstance] {
            instance = reinterpret_cast<LoadedService::Interface*>(getInstance());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    static std::vector<sp<LoadedService::Interface>>* kept =
            new std::vector<sp<LoadedService::Interface>>;
    kept->push_back(shared[0]);
    for (LoadedService::Interface* instance : shared)
        EXPECT_EQ(shared[0], instance);
    EXPECT_NE(second, shared[0]);
    for (LoadedService::Interface* other : {second, shared[0]}) {
        EXPECT_EQ(1, static_cast<int32_t>(other->getServerStatus()));
        EXPECT_EQ(1, static_cast<int32_t>(other->getDBVersion()));
        other->Lookup("2", "2");
    }
    ASSERT_TRUE(client->WaitFor(3));
    EXPECT_EQ("\"Zone/A\"", client->Reports()[2].tzId);
    EXPECT_FALSE(second->isRemote());
}

// A client may call every method from inside its report, and may be released there.
TEST_F(FlowTest, AClientMayCallTheServiceFromItsReport) {
    struct Caller : Recorder {
        explicit Caller(LoadedService* service) : mService(service) {}
        android::hardware::Return<void> timeZoneIdReport(
                const android::hardware::hidl_string& lat,
                const android::hardware::hidl_string& lon,
                const android::hardware::hidl_string& tzId) override {
            if (Reports().empty()) {
                LoadedService& service = *mService;
                service->stopLookup(this);
                service->startLookup(this);
                service->Lookup("7", "7");
                service->downloadDB({}, 0, 1, 3);
                service->injectDB();
                EXPECT_EQ(1, static_cast<int32_t>(service->getDBVersion()));
                EXPECT_EQ(1, static_cast<int32_t>(service->getServerStatus()));
                host::EndOwnerOf(this);
                service->startLookup(this);
            }
            return Recorder::timeZoneIdReport(lat, lon, tzId);
        }
        LoadedService* mService;
    };
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 1));
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
    const sp<Caller> client = new Caller(&service);
    service->startLookup(client);
    service->Lookup("1", "2");
    EXPECT_TRUE(client->WaitFor(2));
}

// --- What it leaves behind ---------------------------------------------------------------

size_t CountEntries(const char* directory) {
    return static_cast<size_t>(
            std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

size_t CountMappingsOf(const std::string& name) {
    std::ifstream maps("/proc/self/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        if (line.find(name) != std::string::npos) ++count;
    }
    return count;
}

TEST_F(FlowTest, LeavesNothingBehindWhenItIsUnloaded) {
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 1, 200000));
    const Bytes next = SampleDatabase("\"Zone/B\"", 2, 200000);
    const auto cycle = [&next] {
        const sp<Recorder> client = new Recorder;
        LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
        service->startLookup(client);
        service->Lookup("1", "2");
        service.Send(next, 50000);
        service->injectDB();
        service->Lookup("1", "2");
        EXPECT_TRUE(client->WaitFor(2));
        service->stopLookup(client);
        service->Lookup("3", "4");  // Still in the queue, perhaps, when the library goes.
    };
    for (int i = 0; i < 3; ++i)
        cycle();
    mLog.Take();
    const size_t threads = CountEntries("/proc/self/task");
    const size_t descriptors = CountEntries("/proc/self/fd");
    const size_t bytes = mallinfo2().uordblks;
    constexpr size_t kCycles = 20;
    for (size_t i = 0; i < kCycles; ++i) {
        cycle();
        mLog.Take();
    }
    EXPECT_EQ(threads, CountEntries("/proc/self/task"));
    EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
    EXPECT_EQ(0u, CountMappingsOf("impl_local"));
    EXPECT_EQ(0u, CountMappingsOf("lastcombinedTimezone"));
    // The service object and its recipient, which hold each other, and what keeps them here.
    EXPECT_LE(mallinfo2().uordblks, bytes + kCycles * 1024);
}

}  // namespace
