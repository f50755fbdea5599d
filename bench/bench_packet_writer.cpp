// Packet writer throughput on a large list of small records, against libxml2's text writer
// writing the same elements into memory.

#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <libxml/xmlwriter.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "ratio_reporter.h"

namespace {

using Serialization::MetaInfo;

struct Entry {
    std::uint32_t Id;
    std::u16string Name;
    std::uint64_t Size;
    Common::Guid Machine;
    bool Enabled;
    std::u16string Path;
    std::int64_t Time;
    // The same strings in UTF-8, prepared for the peer outside the timed loop.
    std::string NameUtf8;
    std::string PathUtf8;
};

const std::vector<Entry>& Entries() {
    static const std::vector<Entry> entries = [] {
        std::vector<Entry> list;
        for (std::uint32_t i = 0; i < 20000; ++i) {
            Entry e;
            e.Id = i;
            e.Name =
                u"Daily backup of volume " + Common::Utf8ToUtf16Lenient(std::to_string(i % 97));
            e.Size = 1000003ull * i;
            Common::Create(e.Machine);
            e.Enabled = i % 3 != 0;
            e.Path = u"C:\\Users\\Operator\\Documents\\Archive-" +
                     Common::Utf8ToUtf16Lenient(std::to_string(i)) + u".tib";
            if (i % 10 == 0) {
                e.Path += u" & <old> caf\u00e9";
            }
            e.Time = 1700000000000ll + i;
            e.NameUtf8 = Common::Utf16ToUtf8(e.Name);
            e.PathUtf8 = Common::Utf16ToUtf8(e.Path);
            list.push_back(std::move(e));
        }
        return list;
    }();
    return entries;
}

std::size_t WriteOurs() {
    Serialization::XMLPacketSerializer s(2, 0);
    {
        Serialization::WriteScope list(s, MetaInfo("Entries"));
        Serialization::WriteScope vector(s, MetaInfo("vector"));
        for (const Entry& e : Entries()) {
            Serialization::WriteScope item(s, MetaInfo("item"));
            s.Write(MetaInfo("Id"), e.Id);
            s.Write(MetaInfo("Name"), e.Name);
            s.Write(MetaInfo("Size"), e.Size);
            s.Write(MetaInfo("Machine"), e.Machine);
            s.Write(MetaInfo("Enabled"), e.Enabled);
            s.Write(MetaInfo("Path"), e.Path);
            s.Write(MetaInfo("Time"), e.Time);
        }
    }
    const Serialization::Blob packet = s.Finish();
    return static_cast<std::size_t>(packet.Size());
}

const xmlChar* X(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

std::size_t WriteLibxml2() {
    xmlBufferPtr buffer = xmlBufferCreate();
    xmlTextWriterPtr w = xmlNewTextWriterMemory(buffer, 0);
    xmlTextWriterStartElement(w, X("XML_SERIALIZER"));
    xmlTextWriterStartElement(w, X("Entries"));
    xmlTextWriterStartElement(w, X("vector"));
    char number[32];
    for (const Entry& e : Entries()) {
        xmlTextWriterStartElement(w, X("item"));
        std::snprintf(number, sizeof(number), "%" PRIu32, e.Id);
        xmlTextWriterWriteElement(w, X("Id"), X(number));
        xmlTextWriterWriteElement(w, X("Name"), X(e.NameUtf8.c_str()));
        std::snprintf(number, sizeof(number), "%" PRIu64, e.Size);
        xmlTextWriterWriteElement(w, X("Size"), X(number));
        xmlTextWriterWriteElement(w, X("Machine"), X(Common::ToString(e.Machine).c_str()));
        xmlTextWriterWriteElement(w, X("Enabled"), X(e.Enabled ? "1" : "0"));
        xmlTextWriterWriteElement(w, X("Path"), X(e.PathUtf8.c_str()));
        std::snprintf(number, sizeof(number), "%" PRId64, e.Time);
        xmlTextWriterWriteElement(w, X("Time"), X(number));
        xmlTextWriterEndElement(w);
    }
    xmlTextWriterEndDocument(w);
    xmlFreeTextWriter(w);
    const std::size_t size = static_cast<std::size_t>(xmlBufferLength(buffer));
    xmlBufferFree(buffer);
    return size;
}

void BM_PacketWriter(benchmark::State& state) {
    std::size_t size = 0;
    for (auto _ : state) {
        size = WriteOurs();
        benchmark::DoNotOptimize(size);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(size * state.iterations()));
    state.counters["packet_bytes"] = static_cast<double>(size);
}
BENCHMARK(BM_PacketWriter)->Unit(benchmark::kMillisecond);

void BM_Libxml2TextWriter(benchmark::State& state) {
    std::size_t size = 0;
    for (auto _ : state) {
        size = WriteLibxml2();
        benchmark::DoNotOptimize(size);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(size * state.iterations()));
    state.counters["document_bytes"] = static_cast<double>(size);
}
BENCHMARK(BM_Libxml2TextWriter)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    Entries();
    return bench_support::RunWithRatios(argc, argv,
                                        {{"packet writer vs libxml2 xmlTextWriter",
                                          "BM_Libxml2TextWriter", "BM_PacketWriter", 3.0}});
}
