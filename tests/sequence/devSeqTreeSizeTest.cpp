#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "testing/dump.h"
#include "testing/smallStack.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

LiString nameOf(int number)
{
    return std::to_string(number).c_str();
}

/// Takes each machine from `init` to `final`, and delivers the reports of the devices itself. Node
/// 0 is the root, and a parent has a smaller number than its children.
void runThrough(DevSeqTree &tree, int nbNodes)
{
    auto const expectAll = [&](char const *state) {
        for (int i = 0; i < nbNodes; ++i)
            ASSERT_EQ(tree.getState(nameOf(i)), state) << i;
    };
    tree.processEvent(DevSeqEv::START);
    expectAll("start");
    for (int i = 0; i < nbNodes; ++i)
        tree.processEvent(nameOf(i), DevSeqEv::READY);
    EXPECT_EQ(tree.getState(nameOf(0)), "sync");
    for (int i = 0; i < nbNodes; ++i)
        tree.processEvent(nameOf(i), DevSeqEv::LOCK);
    expectAll("lock");
    tree.processEvent(DevSeqEv::RECOVER);
    expectAll("recover");
    for (int i = 0; i < nbNodes; ++i)
        tree.processEvent(nameOf(i), DevSeqEv::READY);
    for (int i = 0; i < nbNodes; ++i)
        tree.processEvent(nameOf(i), DevSeqEv::LOCK);
    tree.processEvent(DevSeqEv::STOP);
    for (int i = nbNodes; i-- > 0;)
        tree.processEvent(nameOf(i), DevSeqEv::STOPPED);
    expectAll("final");
    tree.wait();
}

TEST(DevSeqTreeSizeTest, ATreeAsDeepAsAnyFitsOnASmallStack)
{
    runOnSmallStack([] {
        int const nbLevels = 10000;
        RCShdPtr<DevSeqTree> tree(new DevSeqTree);
        RCShdPtr<DevSeqTreeNode> above;
        for (int i = 0; i < nbLevels; ++i) {
            RCShdPtr<DevSeqTreeNode> const node = DevSeqTreeNode::createNoop(nameOf(i));
            if (above.isNull())
                tree->setRoot(node);
            else
                tree->attach(above, node);
            above = node;
        }
        above = nullptr;
        runThrough(*tree, nbLevels);

        std::string expected = "( ";
        std::string closing;
        for (int i = 0; i < nbLevels; ++i) {
            expected += std::to_string(i) + (i + 1 < nbLevels ? " ( " : " ");
            closing += i + 1 < nbLevels ? ") " : "";
        }
        EXPECT_EQ(textOf(*tree), expected + closing + ")");
        tree = nullptr;
    });
}

TEST(DevSeqTreeSizeTest, ATreeBuiltFromBelowIsTheSame)
{
    runOnSmallStack([] {
        int const nbLevels = 10000;
        RCShdPtr<DevSeqTree> tree(new DevSeqTree);
        for (int i = nbLevels; i-- > 0;)
            tree->setRoot(DevSeqTreeNode::createNoop(nameOf(i)));
        tree->processEvent(DevSeqEv::START);
        EXPECT_EQ(tree->getState(nameOf(nbLevels - 1)), "start");
    });
}

TEST(DevSeqTreeSizeTest, ADeepSubtreeIsDestroyedWithItsLastReference)
{
    runOnSmallStack([] {
        RCShdPtr<DevSeqTreeNode> held;
        {
            RCShdPtr<DevSeqTree> const tree(new DevSeqTree);
            for (int i = 10000; i-- > 0;) {
                RCShdPtr<DevSeqTreeNode> const node = DevSeqTreeNode::createNoop(nameOf(i));
                tree->setRoot(node);
                held = node;
            }
        }
        held = nullptr;
    });
}

TEST(DevSeqTreeSizeTest, AWideTreeRunsThrough)
{
    RCShdPtr<DevSeqTree> const tree(new DevSeqTree);
    RCShdPtr<DevSeqTreeNode> const root = DevSeqTreeNode::createNoop(nameOf(0));
    tree->setRoot(root);
    int const nbNodes = 1000;
    for (int i = 1; i < nbNodes; ++i)
        tree->attach(root, DevSeqTreeNode::createNoop(nameOf(i)));
    runThrough(*tree, nbNodes);
}

TEST(DevSeqTreeSizeTest, ABushyTreeRunsThrough)
{
    RCShdPtr<DevSeqTree> const tree(new DevSeqTree);
    std::vector<RCShdPtr<DevSeqTreeNode>> nodes;
    int const nbNodes = 1000;
    for (int i = 0; i < nbNodes; ++i) {
        nodes.push_back(DevSeqTreeNode::createNoop(nameOf(i)));
        if (i == 0)
            tree->setRoot(nodes[0]);
        else
            tree->attach(nodes[static_cast<std::size_t>((i - 1) / 3)], nodes.back());
    }
    runThrough(*tree, nbNodes);
}

} // namespace
} // namespace ZvTest
