#include "model/maintenance.h"

#include <gtest/gtest.h>

using namespace phone;
using std::chrono::seconds;

namespace {

class MaintenanceTasks : public ::testing::Test {
protected:
    seconds now{1000};
    Maintenance maintenance{[this] { return now; }};
};

} // namespace

TEST_F(MaintenanceTasks, AreNoneAtFirst) {
    EXPECT_EQ(maintenance.progress().task, Task::none);
    EXPECT_EQ(maintenance.progress().percent, 100);
    EXPECT_EQ(maintenance.upTime(), seconds(1000));
    EXPECT_FALSE(maintenance.lastProvisioning());
}

TEST_F(MaintenanceTasks, MakeProgressAndEndByThemselves) {
    ASSERT_TRUE(maintenance.start(Task::upgrade, seconds(40)));
    const struct {
        int after;
        Task task;
        int percent;
        int remaining;
    } moments[] = {{0, Task::upgrade, 0, 40},   {1, Task::upgrade, 2, 39},
                   {20, Task::upgrade, 50, 20}, {39, Task::upgrade, 97, 1},
                   {40, Task::none, 100, 0},    {9000, Task::none, 100, 0}};
    for (const auto& moment : moments) {
        now = seconds(1000 + moment.after);
        const Maintenance::Progress progress = maintenance.progress();
        EXPECT_EQ(progress.task, moment.task) << moment.after;
        EXPECT_EQ(progress.percent, moment.percent) << moment.after;
        EXPECT_EQ(progress.remaining, seconds(moment.remaining)) << moment.after;
    }
}

TEST_F(MaintenanceTasks, RunOneAtATime) {
    ASSERT_TRUE(maintenance.start(Task::restart, seconds(10)));
    now += seconds(9);
    EXPECT_FALSE(maintenance.start(Task::provisioning, seconds(10)));
    EXPECT_EQ(maintenance.progress().task, Task::restart);
    now += seconds(1);
    EXPECT_TRUE(maintenance.start(Task::provisioning, seconds(10)));
}

TEST_F(MaintenanceTasks, TakeAtLeastOneSecond) {
    ASSERT_TRUE(maintenance.start(Task::restart, seconds(-5)));
    EXPECT_EQ(maintenance.progress().percent, 0);
    now += seconds(1);
    EXPECT_EQ(maintenance.progress().task, Task::none);
}

TEST_F(MaintenanceTasks, RestartTheUpTime) {
    for (Task task : {Task::restart, Task::factoryReset, Task::upgrade}) {
        now = seconds(now.count() + 1000);
        ASSERT_TRUE(maintenance.start(task, seconds(10)));
        now += seconds(9);
        EXPECT_GT(maintenance.upTime(), seconds(1000));
        now += seconds(6);
        EXPECT_EQ(maintenance.upTime(), seconds(5));
    }
    for (Task task : {Task::provisioning, Task::configuration}) {
        ASSERT_TRUE(maintenance.start(task, seconds(10)));
        now += seconds(100);
        EXPECT_GE(maintenance.upTime(), seconds(100));
    }
}

TEST_F(MaintenanceTasks, ReportTheLastProvisioning) {
    ASSERT_TRUE(maintenance.start(Task::provisioning, seconds(10), "http://one"));
    EXPECT_EQ(maintenance.progress().server, "http://one");
    now += seconds(9);
    EXPECT_FALSE(maintenance.lastProvisioning());
    now += seconds(4);
    ASSERT_TRUE(maintenance.start(Task::provisioning, seconds(10), "http://two"));
    EXPECT_EQ(maintenance.progress().server, "http://two");
    ASSERT_TRUE(maintenance.lastProvisioning());
    EXPECT_EQ(maintenance.lastProvisioning()->ago, seconds(3));
    EXPECT_EQ(maintenance.lastProvisioning()->server, "http://one");
    now += seconds(10);
    EXPECT_EQ(maintenance.lastProvisioning()->server, "http://two");
    maintenance.start(Task::restart, seconds(1));
    EXPECT_EQ(maintenance.progress().server, "");
    now += seconds(1);
    EXPECT_FALSE(maintenance.lastProvisioning());
}

TEST(Tasks, HaveTheStatusWordsThatClientsExpect) {
    EXPECT_STREQ(wordOf(Task::none), "idle");
    EXPECT_STREQ(wordOf(Task::restart), "reboot");
    EXPECT_STREQ(wordOf(Task::factoryReset), "reset");
    EXPECT_STREQ(wordOf(Task::provisioning), "autoprovision");
    EXPECT_STREQ(wordOf(Task::upgrade), "upgrade");
    EXPECT_STREQ(wordOf(Task::configuration), "configration");
    EXPECT_STREQ(wordOf(static_cast<Task>(99)), "unkown");
}

TEST(SystemClock, Advances) {
    EXPECT_GT(systemClock(), seconds(0));
}
