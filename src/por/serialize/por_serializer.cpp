#include "por/serialize/por_serializer.h"

#include <tessel_link/common/unicode.h>
#include <tessel_link/por/compare.h>
#include <tessel_link/por/trait_names.h>
#include <tessel_link/por/util.h>

#include "common/thread_cache.h"
#include "por/serialize/processing_nodes.h"

namespace Por::Serialization {

PorAwareSerializer::PorAwareSerializer() {
    RegisterInterface<PorAwareSerializer>(this);
}
PorAwareSerializer::~PorAwareSerializer() = default;

PorAwareDeserializer::PorAwareDeserializer() {
    RegisterInterface<PorAwareDeserializer>(this);
}
PorAwareDeserializer::~PorAwareDeserializer() = default;

PORSerializer::PORSerializer(Construction::UnitFactory& factory, UnitPtr& destination)
    : factory_(&factory), destination_(&destination) {
    Attach();
}

PORSerializer::~PORSerializer() {
    if (pool_) {
        Detach();
    }
}

void PORSerializer::Attach() {
    pool_ = Detail::NodePool::Borrow();
    root_ = pool_->Open(Detail::NodeKind::Bridge, nullptr, MetaInfo(), *factory_);
    stack_.swap(pool_->stackRoom);
}

void PORSerializer::Detach() {
    // The nodes of elements left open by a failure drop what they hold on the way back.
    while (!stack_.empty()) {
        Pop();
    }
    pool_->Return(std::move(root_));
    stack_.swap(pool_->stackRoom);
    Detail::NodePool::GiveBack(std::move(pool_));
}

namespace {
// The thread's spare serializer.
std::unique_ptr<PORSerializer>* ThreadSpare() {
    return Common::ThreadCache<std::unique_ptr<PORSerializer>>::Get();
}
}  // namespace

std::unique_ptr<PORSerializer> PORSerializer::Take(Construction::UnitFactory& factory,
                                                   UnitPtr& destination) {
    std::unique_ptr<PORSerializer>* spare = ThreadSpare();
    if (spare == nullptr || !*spare) {
        return std::make_unique<PORSerializer>(factory, destination);
    }
    std::unique_ptr<PORSerializer> serializer = std::move(*spare);
    serializer->factory_ = &factory;
    serializer->destination_ = &destination;
    serializer->Attach();
    return serializer;
}

void PORSerializer::Keep(std::unique_ptr<PORSerializer> serializer) {
    std::unique_ptr<PORSerializer>* spare = ThreadSpare();
    if (serializer->failure_.Failed() || serializer->hasPending_ || !serializer->stack_.empty() ||
        spare == nullptr || *spare) {
        return;
    }
    // The spare holds no nodes: they go back to the thread's pool, which serializers made
    // in the meantime use.
    serializer->Detach();
    serializer->context_ = 0;
    serializer->pending_ = MetaInfo();
    *spare = std::move(serializer);
}

void PORSerializer::Push(std::unique_ptr<Detail::SimpleNode> node) {
    stack_.push_back(std::move(node));
}

void PORSerializer::Pop() {
    std::unique_ptr<Detail::SimpleNode> node = std::move(stack_.back());
    stack_.pop_back();
    pool_->Return(std::move(node));
}

template <class Operation>
void PORSerializer::Guarded(Operation&& operation) {
    if (failure_.Failed()) {
        throw failure_;
    }
    try {
        operation();
    } catch (const Common::Error& error) {
        failure_ = error;
        throw;
    }
}

Detail::SimpleNode& PORSerializer::Parent() {
    return stack_.empty() ? *root_ : *stack_.back();
}

void PORSerializer::Materialize(bool composite) {
    Detail::SimpleNode& parent = Parent();
    hasPending_ = false;
    Push(pool_->Open(composite ? Detail::NodeKind::Composite : Detail::NodeKind::Bridge, &parent,
                     std::move(pending_), *factory_));
}

void PORSerializer::BeginNode(const MetaInfo& meta) {
    const Detail::NodeKind kind = Detail::FindNodeKind(meta.Name);
    if (kind == Detail::NodeKind::Composite) {
        if (hasPending_) {
            Materialize(true);
        }
        pending_ = meta;
        hasPending_ = true;
        return;
    }
    if (hasPending_) {
        Materialize(false);
    }
    Push(pool_->Open(kind, &Parent(), MetaInfo(meta), *factory_));
}

void PORSerializer::EndNode() {
    if (hasPending_) {
        // Nothing was written into it: a record without members.
        Materialize(true);
    }
    if (stack_.empty()) {
        return;  // an end without a begin
    }
    stack_.back()->Finalize();
    Pop();
    if (!stack_.empty()) {
        return;
    }
    UnitPtr tree;
    root_->TakeUnit(tree);
    *destination_ = std::move(tree);
}

void PORSerializer::WriteValue(const MetaInfo& meta, UnitPtr unit) {
    Guarded([&] {
        Detail::ApplyDescriptorTraits(*unit, meta, *factory_);
        if (!hasPending_ && stack_.empty()) {
            *destination_ = std::move(unit);
            return;
        }
        if (hasPending_) {
            Materialize(!meta.Name.empty());
        }
        stack_.back()->Process(meta.Name, std::move(unit));
    });
}

using Serializer = ::Serialization::Serializer;

Serializer& PORSerializer::Write(const MetaInfo& meta, const ::Serialization::Blob& value) {
    const unsigned char* bytes = value.Data();
    WriteValue(meta, factory_->CreateBlob(ByteVector(bytes, bytes + value.Size())));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::vector<unsigned char>& value) {
    WriteValue(meta, factory_->CreateBlob(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::uint16_t& value) {
    WriteValue(meta, factory_->CreateWord(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::int16_t& value) {
    WriteValue(meta, factory_->CreateSword(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::string& value) {
    WriteValue(meta, factory_->CreateString(Common::Utf8ToUtf16Lenient(value)));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::int64_t& value) {
    WriteValue(meta, factory_->CreateSqword(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::int32_t& value) {
    WriteValue(meta, factory_->CreateSdword(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::uint64_t& value) {
    WriteValue(meta, factory_->CreateQword(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const double& value) {
    WriteValue(meta, factory_->CreateDouble(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::uint32_t& value) {
    WriteValue(meta, factory_->CreateDword(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const std::u16string& value) {
    WriteValue(meta, factory_->CreateString(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, const Common::Error& value) {
    WriteValue(meta, factory_->CreateError(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, Common::Guid value) {
    WriteValue(meta, factory_->CreateGuid(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, std::uint8_t value) {
    WriteValue(meta, factory_->CreateByte(value));
    return *this;
}

Serializer& PORSerializer::Write(const MetaInfo& meta, bool value) {
    WriteValue(meta, factory_->CreateBoolean(value));
    return *this;
}

void PORSerializer::Finish(std::vector<unsigned char>& bytes) {
    bytes.clear();
}

::Serialization::Blob PORSerializer::Finish() {
    return ::Serialization::Blob();
}

MetaInfo PORSerializer::CurrentMetaInfo() {
    if (hasPending_) {
        return pending_;
    }
    return stack_.empty() ? MetaInfo() : stack_.back()->Descriptor();
}

void PORSerializer::BeginWriteMetaInfo(const MetaInfo& meta) {
    Guarded([&] { BeginNode(meta); });
}

void PORSerializer::FinishWriteMetaInfo(const MetaInfo&) {
    Guarded([&] { EndNode(); });
}

void PORSerializer::SetSubjectVersion(std::uint64_t version) {
    context_ = version;
}

std::uint64_t PORSerializer::GetSubjectVersion() {
    return context_;
}

void PORSerializer::WriteUnit(const MetaInfo& meta, const View::Unit* unit) {
    UnitPtr copy;
    Guarded([&] {
        if (unit != nullptr) {
            copy = Util::CopyUnit(*unit, *factory_);
        } else {
            copy = factory_->CreateNil();
            Util::AddTrait(*copy, UnitName::Literal(TraitNames::IsEmpty), factory_->CreateNil(),
                           *factory_);
        }
    });
    WriteValue(meta, std::move(copy));
}

std::unique_ptr<PorAwareSerializer> CreatePORSerializer(Construction::UnitFactory& factory,
                                                        UnitPtr& destination) {
    return std::make_unique<PORSerializer>(factory, destination);
}

}  // namespace Por::Serialization
