// What the node tree costs with few and with many nodes: finding a node, and a write that reaches a
// watcher. A bare signal with the same arguments is the measure.

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <memory>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"

namespace
{
/// A tree of `size` nodes, one of which is watched.
class Tree
{
public:
    explicit Tree(int size)
    {
        for (int i = 0; i < size; ++i) {
            m_node = CMValueNode::create(&m_nodes, path(i));
            m_node->setValue(VornValue().setI32(i));
        }
        m_item = std::make_unique<CMValueItem>(nullptr, m_node->path());
        QObject::connect(m_item.get(), &CMValueItem::changed,
                         [this](const VornValue& value) { m_sum += value.i32(); });
    }

    CMValueNode* node() { return m_node; }
    qint64 sum() const { return m_sum; }

private:
    static CMPath path(int i) { return CMPath(QStringLiteral("/settings/%1/value%2").arg(i / 10).arg(i)); }

    CMNodes m_nodes;
    CMValueNode* m_node = nullptr;
    std::unique_ptr<CMValueItem> m_item;
    qint64 m_sum = 0;
};

void bareSignal(benchmark::State& state)
{
    CMValueItem item(nullptr, CMPath(QStringLiteral("/bare")));
    qint64 sum = 0;
    QObject::connect(&item, &CMValueItem::changed, [&sum](const VornValue& value) { sum += value.i32(); });
    int number = 0;
    for (auto _ : state) {
        emit item.changed(VornValue().setI32(++number), VornValue());
    }
    benchmark::DoNotOptimize(sum);
}

void find(benchmark::State& state)
{
    Tree tree(static_cast<int>(state.range(0)));
    const CMPath path = tree.node()->path();
    for (auto _ : state) {
        benchmark::DoNotOptimize(CMRoot()->getValue(path));
    }
}

void notify(benchmark::State& state)
{
    Tree tree(static_cast<int>(state.range(0)));
    int number = 0;
    for (auto _ : state) {
        tree.node()->setValue(VornValue().setI32(--number));
    }
    benchmark::DoNotOptimize(tree.sum());
}

void findAndNotify(benchmark::State& state)
{
    Tree tree(static_cast<int>(state.range(0)));
    const CMPath path = tree.node()->path();
    int number = 0;
    for (auto _ : state) {
        const CMVoidReply reply;
        CMRoot()->setValue(path, VornValue().setI32(--number), reply);
        reply.wait();
    }
    benchmark::DoNotOptimize(tree.sum());
}
} // namespace

BENCHMARK(bareSignal);
BENCHMARK(find)->Arg(100)->Arg(100000);
BENCHMARK(notify)->Arg(100)->Arg(100000);
BENCHMARK(findAndNotify)->Arg(100)->Arg(100000);

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
