#include "zvbase/inPackage.h"

#include "testing/childProcess.h"
#include "zvbase/dbgBuildInfo.h"
#include "zvbase/inInit.h"
#include "zvbase/inPackageRun.private.h"
#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

void tellOfLevels(); // traceTest.cpp

namespace {

using Steps = std::vector<std::string>;

Steps &steps = *new Steps;
std::string &failing = *new std::string; // the step that throws

void record(std::string const &step)
{
    steps.push_back(step);
    if (step == failing)
        throw std::runtime_error(step);
}

/// A package without a tag. Each number is a type of its own.
template <int Number>
class Package : public InPackageInit
{
public:
    explicit Package(char const *name) : InPackageInit(name) {}

    void initPackage() override { record(std::string("+") + getName()); }
    void cleanupPackage() override { record(std::string("-") + getName()); }
    void setInitialized(bool initialized) override
    {
        record(std::string(initialized ? "up " : "down ") + getName());
    }

    template <int Other>
    Package &needs()
    {
        addDependency(&typeid(Package<Other>));
        return *this;
    }
};

class Variable : public InVariableBase
{
public:
    explicit Variable(std::string name) : _name(std::move(name)) {}
    void initVariable() override { record("+" + _name); }
    void cleanupVariable() override { record("-" + _name); }

private:
    std::string _name;
};

class InPackage : public testing::Test
{
protected:
    InPackage()
    {
        steps.clear();
        failing.clear();
    }

    InPackageRun::Packages all() { return {&_a, &_b, &_c}; }

    Package<1> _a{"a"};
    Package<2> _b{"b"};
    Package<3> _c{"c"};
};

TEST_F(InPackage, StartsAfterItsDependenciesAndEndsBeforeThem)
{
    _a.needs<3>().needs<2>();
    _b.needs<3>();
    InPackageRun run(all());
    run.bringUp();
    EXPECT_EQ(steps, (Steps{"+c", "up c", "+b", "up b", "+a", "up a"}));
    steps.clear();
    run.takeDown();
    EXPECT_EQ(steps, (Steps{"-a", "down a", "-b", "down b", "-c", "down c"}));
}

TEST_F(InPackage, KeepsTheOrderOfRegistrationWithoutDependencies)
{
    InPackageRun run(all());
    EXPECT_EQ(run.getOrder(), all());
}

TEST_F(InPackage, EntersItsDependenciesInTheOrderOfTheCalls)
{
    _a.needs<3>().needs<2>();
    EXPECT_EQ(_a.getDependencies(),
              (std::vector<std::type_info const *>{&typeid(Package<3>), &typeid(Package<2>)}));
    EXPECT_EQ(InPackageRun(all()).getOrder(), (InPackageRun::Packages{&_c, &_b, &_a}));
}

std::string getFailure(InPackageRun::Packages const &packages)
{
    try {
        InPackageRun const run(packages);
    } catch (InPackageError const &error) {
        return error.what();
    }
    return "none";
}

TEST_F(InPackage, ACircleIsNamed)
{
    _a.needs<2>();
    _b.needs<3>();
    _c.needs<2>();
    EXPECT_EQ(getFailure(all()), "Packages need each other in a circle: b -> c -> b.");
}

TEST_F(InPackage, APackageThatNeedsItselfIsACircle)
{
    _b.needs<2>();
    EXPECT_EQ(getFailure(all()), "Packages need each other in a circle: b -> b.");
}

TEST_F(InPackage, AMissingPackageIsNamed)
{
    _b.needs<4>();
    EXPECT_EQ(getFailure(all()), "Package \"b\" needs a package that is not registered: "
                                 "ZvTest::(anonymous namespace)::Package<4>.");
}

TEST_F(InPackage, StartedPackagesAreShutDownIfOneFails)
{
    failing = "+c";
    InPackageRun run(all());
    EXPECT_THROW(run.bringUp(), std::runtime_error);
    EXPECT_EQ(steps, (Steps{"+a", "up a", "+b", "up b", "+c", "-b", "down b", "-a", "down a"}));
}

TEST_F(InPackage, TheFirstFailureIsTheOneToTell)
{
    class Failing : public Package<2>
    {
    public:
        using Package<2>::Package;
        void cleanupPackage() override { throw std::logic_error("going down"); }
    } failingToo("b");
    failing = "+c";
    InPackageRun run({&_a, &failingToo, &_c});
    EXPECT_THROW(run.bringUp(), std::runtime_error);
    EXPECT_EQ(steps.back(), "down a");
}

TEST_F(InPackage, AFailureOnTheWayDownDoesNotStopTheOtherPackages)
{
    InPackageRun run(all());
    run.bringUp();
    steps.clear();
    failing = "-b";
    EXPECT_THROW(run.takeDown(), std::runtime_error);
    EXPECT_EQ(steps, (Steps{"-c", "down c", "-b", "down b", "-a", "down a"}));
    steps.clear();
    run.takeDown();
    EXPECT_TRUE(steps.empty()) << "no package is up";
}

TEST_F(InPackage, CanStartAgain)
{
    InPackageRun run({&_a});
    run.bringUp();
    run.takeDown();
    steps.clear();
    run.bringUp();
    EXPECT_EQ(steps, (Steps{"+a", "up a"}));
    run.takeDown();
}

TEST_F(InPackage, VariablesLiveWithinTheirPackage)
{
    Variable x("x");
    Variable y("y");
    _a.addDependency(&x);
    _a.addDependency(&y);
    InPackageRun run({&_a});
    run.bringUp();
    EXPECT_EQ(steps, (Steps{"+a", "+x", "+y", "up a"}));
    steps.clear();
    run.takeDown();
    EXPECT_EQ(steps, (Steps{"-y", "-x", "-a", "down a"}));
}

TEST_F(InPackage, AVariableJoinsAndLeavesAPackageThatIsUp)
{
    Variable x("x");
    InPackageRun run({&_a});
    run.bringUp();
    steps.clear();
    _a.addDependency(&x);
    EXPECT_EQ(steps, (Steps{"+x"}));
    _a.removeDependency(&x);
    EXPECT_EQ(steps, (Steps{"+x", "-x"}));
    _a.removeDependency(&x);
    run.takeDown();
    EXPECT_EQ(steps, (Steps{"+x", "-x", "-a", "down a"}));
}

TEST_F(InPackage, AVariableThatFailsTakesItsPackageDown)
{
    Variable x("x");
    Variable y("y");
    _b.addDependency(&x);
    _b.addDependency(&y);
    failing = "+y";
    InPackageRun run(all());
    EXPECT_THROW(run.bringUp(), std::runtime_error);
    EXPECT_EQ(steps, (Steps{"+a", "up a", "+b", "+x", "+y", "-x", "-b", "-a", "down a"}));
}

/// Variable that adds and removes others, or itself, in its steps.
class Restless : public InVariableBase
{
public:
    Restless(std::string name, InPackageInit &package) : _name(std::move(name)), _package(package)
    {}

    void initVariable() override
    {
        record("+" + _name);
        if (addsWhenItComes)
            _package.addDependency(addsWhenItComes);
        if (removesWhenItComes)
            _package.removeDependency(removesWhenItComes);
    }
    void cleanupVariable() override
    {
        record("-" + _name);
        if (removesWhenItGoes)
            _package.removeDependency(removesWhenItGoes);
    }

    InVariableBase *addsWhenItComes = nullptr;
    InVariableBase *removesWhenItComes = nullptr;
    InVariableBase *removesWhenItGoes = nullptr;

private:
    std::string _name;
    InPackageInit &_package;
};

TEST_F(InPackage, AVariableThatIsDestroyedMayRemoveOthersAndItself)
{
    Restless x("x", _a);
    Restless y("y", _a);
    Restless z("z", _a);
    for (Restless *variable : {&x, &y, &z})
        _a.addDependency(variable);
    z.removesWhenItGoes = &x;
    y.removesWhenItGoes = &y;
    InPackageRun run({&_a});
    run.bringUp();
    steps.clear();
    run.takeDown();
    EXPECT_EQ(steps, (Steps{"-z", "-x", "-y", "-a", "down a"})) << "each goes once";
    steps.clear();
    run.bringUp();
    EXPECT_EQ(steps, (Steps{"+a", "+z", "up a"}));
    z.removesWhenItGoes = nullptr;
    run.takeDown();
}

TEST_F(InPackage, AnInitialisingVariableMayAddAndRemoveOthersAndItself)
{
    Restless x("x", _a);
    Restless y("y", _a);
    Restless z("z", _a);
    Variable added("added");
    for (Restless *variable : {&x, &y, &z})
        _a.addDependency(variable);
    x.addsWhenItComes = &added;
    y.removesWhenItComes = &x;
    z.removesWhenItComes = &z;
    InPackageRun run({&_a});
    run.bringUp();
    EXPECT_EQ(steps, (Steps{"+a", "+x", "+y", "-x", "+z", "+added", "up a"}));
    steps.clear();
    run.takeDown();
    EXPECT_EQ(steps, (Steps{"-added", "-y", "-a", "down a"}));
}

TEST_F(InPackage, AVariableAddedToAPackageThatIsUpMayAddAnother)
{
    Restless x("x", _a);
    Variable added("added");
    x.addsWhenItComes = &added;
    InPackageRun run({&_a});
    run.bringUp();
    steps.clear();
    _a.addDependency(&x);
    run.takeDown();
    EXPECT_EQ(steps, (Steps{"+x", "+added", "-x", "-added", "-a", "down a"}));
}

TEST_F(InPackage, AVariableThatFailsToJoinAPackageThatIsUpIsNotEntered)
{
    Variable x("x");
    InPackageRun run({&_a});
    run.bringUp();
    failing = "+x";
    EXPECT_THROW(_a.addDependency(&x), std::runtime_error);
    steps.clear();
    failing.clear();
    run.takeDown();
    EXPECT_EQ(steps, (Steps{"-a", "down a"}));
    run.bringUp();
    EXPECT_EQ(steps, (Steps{"-a", "down a", "+a", "up a"}));
    run.takeDown();
}

} // namespace

// ---- tags

struct TestUpper;

struct TestLower
{
    static constexpr char const *NAME = "lower";
    using DependsOn = InDependencies<ZvInit::base>;
};

struct TestUpper
{
    static constexpr char const *NAME = "upper";
    using DependsOn = InDependencies<TestLower, ZvInit::base>;
};

} // namespace ZvTest

template <>
void Zv::InInit<ZvTest::TestUpper>::initPackage()
{
    ZvTest::record("upper comes");
}

template <>
void Zv::InInit<ZvTest::TestUpper>::cleanupPackage()
{
    ZvTest::record("upper goes");
}

namespace ZvTest {

namespace {

TEST(InInit, TakesNameAndDependenciesFromItsTag)
{
    InInit<TestUpper> const upper;
    EXPECT_STREQ(upper.getName(), "upper");
    EXPECT_EQ(upper.getDependencies(),
              (std::vector<std::type_info const *>{&InInit<TestLower>::getType(),
                                                   &InInit<ZvInit::base>::getType()}));
    EXPECT_EQ(InInit<TestUpper>::getType(), typeid(upper));
}

TEST(InInit, KnowsWhetherItIsUp)
{
    steps.clear();
    failing.clear();
    InInit<TestUpper> upper;
    InInit<TestLower> lower;
    InInit<ZvInit::base> base;
    InPackageRun run({&upper, &lower, &base});
    EXPECT_FALSE(InInit<TestUpper>::isInitialized());
    run.bringUp();
    EXPECT_TRUE(InInit<TestUpper>::isInitialized());
    EXPECT_TRUE(InInit<TestLower>::isInitialized());
    run.takeDown();
    EXPECT_FALSE(InInit<TestUpper>::isInitialized());
    EXPECT_EQ(steps, (Steps{"upper comes", "upper goes"}));
    base.setInitialized(true); // restores its state
}

// ---- scopes

TEST(InPackageScope, TheProgramsOwnScopeIsOpen)
{
    EXPECT_TRUE(InPackageScope::isOpen());
    EXPECT_TRUE(InInit<ZvInit::base>::isInitialized());
}

TEST(InPackageScope, ANestedScopeRunsNothing)
{
    steps.clear();
    Package<1> late("late");
    late.registerPackage();
    {
        InPackageScope const nested;
        EXPECT_TRUE(InPackageScope::isOpen());
    }
    EXPECT_TRUE(InPackageScope::isOpen());
    EXPECT_TRUE(steps.empty());
}

} // namespace

// ---- tests in a process of their own

namespace {

/// Returns what a new process writes in a scene, and its exit code in brackets.
std::string runChild(std::string const &scene)
{
    ChildProcess child({"--child", scene});
    ChildProcess::End const end = child.await();
    return end.output + "(" + std::to_string(end.code) + ")";
}

TEST(InPackageScope, TheOutermostRunsThePackagesUpAndDown)
{
    EXPECT_EQ(runChild("scopes"), "base is down\n"
                                  "+late\nup late\n"
                                  "base is up\n"
                                  "-late\ndown late\n"
                                  "base is down\n"
                                  "+late\nup late\n"
                                  "-late\ndown late\n"
                                  "(0)");
}

TEST(InPackageScope, AScopeWithinAStepOfAPackageRunsNothing)
{
    EXPECT_EQ(runChild("within"), "+late\na scope\nno scope\nup late\n"
                                  "base is up\n"
                                  "-late\na scope\nno scope\ndown late\n"
                                  "base is down\n"
                                  "(0)");
}

TEST(InPackageScope, AScopeThatAStepLeavesOpenKeepsThePackagesRunning)
{
    EXPECT_EQ(runChild("left"), "+late\nup late\n"
                                "the outer scope is closed\n"
                                "base is up\n"
                                "-late\ndown late\n"
                                "base is down\n"
                                "(0)");
}

TEST(InPackageScope, AScopeThatAFailedRunLeavesOpenRunsNothingWhenItIsClosed)
{
    EXPECT_EQ(runChild("leftByFailure"), "+late\nfailed: +late\n"
                                         "a scope\n"
                                         "no scope\n"
                                         "+late\nup late\n"
                                         "-late\ndown late\n"
                                         "(0)");
}

TEST(InPackageScope, AFailingPackageLeavesNoScope)
{
    EXPECT_EQ(runChild("failing"), "+late\nfailed: +late\nno scope\n(0)");
}

TEST(InPackageScope, AFailureOnTheWayDownIsThrown)
{
    std::string output = runChild("down");
    // The failure of the second scope, which an exception ends, is only traced.
    std::size_t const traced = output.find("Exception: -late\n");
    ASSERT_NE(traced, std::string::npos) << output;
    std::size_t const start = output.rfind('\n', traced) + 1;
    output.erase(start, output.find('\n', traced) + 1 - start);
    EXPECT_EQ(output, "+late\nup late\n-late\ndown late\nfailed: -late\nno scope\n"
                      "+late\nup late\n-late\ndown late\nfailed: something else\n(0)");
}

void tell(char const *text)
{
    std::puts(text);
}

void tellOfScope()
{
    tell(InPackageScope::isOpen() ? "a scope" : "no scope");
}

class Talking : public Package<5>
{
public:
    using Package<5>::Package;
    void initPackage() override
    {
        if (leavesScope)
            left = new InPackageScope;
        say(std::string("+") + getName());
        openScope();
    }
    void cleanupPackage() override
    {
        say(std::string("-") + getName());
        openScope();
    }
    void setInitialized(bool up) override { say(std::string(up ? "up " : "down ") + getName()); }

    bool opensScopes = false;
    bool leavesScope = false;
    InPackageScope *left = nullptr;

private:
    void openScope() const
    {
        if (!opensScopes)
            return;
        {
            InPackageScope const scope;
            tellOfScope();
        }
        tellOfScope();
    }
    static void say(std::string const &step)
    {
        tell(step.c_str());
        if (step == failing)
            throw std::runtime_error(step);
    }
};

void tellOfBase()
{
    tell(InInit<ZvInit::base>::isInitialized() ? "base is up" : "base is down");
}

void runScopes()
{
    tellOfBase();
    {
        InPackageScope const outer;
        {
            InPackageScope const inner;
        }
        tellOfBase();
    }
    tellOfBase();
    InPackageScope const again;
}

void runFailing(bool fails)
{
    try {
        InPackageScope const scope;
        if (fails)
            throw std::runtime_error("something else");
    } catch (std::exception const &exception) {
        tell((std::string("failed: ") + exception.what()).c_str());
    }
}

} // namespace
} // namespace ZvTest

int zvChildMain(int argc, char **argv)
{
    using namespace ZvTest;

    Talking late("late");
    late.registerPackage();
    std::string const what = argc > 0 ? argv[0] : "";
    if (what == "scopes") {
        runScopes();
    } else if (what == "failing") {
        failing = "+late";
        runFailing(false);
        tellOfScope();
    } else if (what == "down") {
        failing = "-late";
        runFailing(false);
        tellOfScope();
        runFailing(true);
    } else if (what == "nullInfo") {
        try {
            Zv::DbgBuildInfoUtil::registerInfo(Zv::ObjPtr<Zv::DbgBuildInfo>());
            tell("taken");
        } catch (Zv::RCEx::ExNullPtr const &) {
            std::printf("refused, %zu records\n", Zv::DbgBuildInfoUtil::getNbInfos());
        }
    } else if (what == "levels") {
        tellOfLevels();
    } else if (what == "within") {
        late.opensScopes = true;
        {
            Zv::InPackageScope const scope;
            tellOfBase();
        }
        tellOfBase();
    } else if (what == "left") {
        late.leavesScope = true;
        {
            Zv::InPackageScope const scope;
        }
        tell("the outer scope is closed");
        tellOfBase();
        delete late.left;
        tellOfBase();
    } else if (what == "leftByFailure") {
        late.leavesScope = true;
        failing = "+late";
        runFailing(false);
        tellOfScope();
        delete late.left;
        tellOfScope();
        late.leavesScope = false;
        failing.clear();
        Zv::InPackageScope const scope;
    }
    return 0;
}
