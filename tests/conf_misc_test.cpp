#include "conf_misc.h"

#include "support/test.h"

#include <chrono>
#include <libxml/parser.h>
#include <sys/epoll.h>

TEST(Descriptor, StopsBlockingAndKeepsItsOtherFlags) {
    const conf::unique_fd fd{open("/var/tmp/flags", O_RDWR | O_CREAT | O_APPEND, 0600)};
    EXPECT_EQ(conf_non_block_fd(fd.get()), 0);
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND | O_NONBLOCK);
    EXPECT_EQ(conf_non_block_fd(-1), -1);
    expect_errors({"Get options of fd(-1) failed(Bad file descriptor)."});
}

TEST(Events, AreEdgeTriggeredAndCarryTheirIdentity) {
    const conf::unique_fd sock{socket(AF_UNIX, SOCK_STREAM, 0)};
    const conf::unique_fd set{epoll_create1(EPOLL_CLOEXEC)};
    const int fd = sock.get();
    EXPECT_EQ(conf_event_reset(set.get(), fd, 3, -7), -1);
    constexpr std::tuple<int, int, unsigned int> cases[] = {
        {0, 5, 0x80002000}, {1, 0, 0x80002001}, {2, INT_MAX, 0x80002004}, {-1, -1, 0x80002005}};
    for (const auto& [event, para, events] : traced(cases)) {
        epoll_data kept_data{};
        kept_data.u64 = 0; // of which u32 is the lower or the upper half
        kept_data.u32 = static_cast<u32_t>(para);
        const unsigned long long data = kept_data.u64;
        EXPECT_EQ((para == 5 ? conf_event_add : conf_event_reset)(set.get(), fd, event, para), 0);
        const auto kept = text("events: %8x data: %16llx ", events | EPOLLERR | EPOLLHUP, data);
        std::ifstream file(text("/proc/self/fdinfo/%d", set.get()));
        const std::string info(std::istreambuf_iterator<char>(file), {});
        EXPECT_NE(info.find(kept), info.npos) << kept << "\n" << info;
    }
    EXPECT_EQ(conf_event_add(set.get(), fd, 1, 2), -1);
    expect_errors(
        {text("Reset event(fd=%d, event=3, para=-7) failed(No such file or directory).", fd),
         text("Add event(fd=%d, event=1, para=2) failed(File exists).", fd)});
}

TEST(Strip, TakesWhiteSpaceOffBothEnds) {
    constexpr const char* cases[][2] = {
        {nullptr, nullptr},    {"", nullptr}, {" \t\r\n\v\f", nullptr},
        {"  ab c \t", "ab c"}, {"x", "x"},    {"\xA0 y\xFF", "\xA0 y\xFF"}};
    for (const auto& [given, expected] : traced(cases))
        EXPECT_STREQ(conf::unique_string(conf_strip(given)).get(), expected);
}

TEST(Clock, CountsMicrosecondsOfTheEpoch) {
    using namespace std::chrono;
    const auto before = system_clock::now().time_since_epoch() / 1us;
    const long long clock = conf_get_unix_time();
    EXPECT_TRUE(before <= clock && clock <= system_clock::now().time_since_epoch() / 1us);
}

TEST(NodeContent, IsTheFirstChildWhenThatIsAText) {
    xmlDoc* doc = xmlReadDoc(
        BAD_CAST "<r a='v'><t>abc<x/></t><n/><c><!--c-->abc</c><d><![CDATA[abc]]></d></r>", nullptr,
        nullptr, 0);
    xmlNode* root = xmlDocGetRootElement(doc);
    EXPECT_STREQ(conf_get_node_content(reinterpret_cast<xmlNode*>(root->properties)), "v");
    xmlNode* node = root->children;
    EXPECT_EQ(conf_get_node_content(node), reinterpret_cast<char*>(node->children->content));
    EXPECT_EQ(conf_get_node_content(node->children), nullptr); // not of the text itself
    for (; node != nullptr; node = node->next)
        EXPECT_EQ(conf_get_node_content(node->next), nullptr);
    xmlFreeDoc(doc);
}

TEST(Itoa, WritesWhatFits) {
    constexpr std::tuple<long, unsigned int, const char*> cases[] = {
        {-42, 64, "-42"}, {0, 2, "0"}, {65535, 4, "655"}, {7, 1, ""}, {7, 0, "####"}};
    for (const auto& [number, size, expected] : traced(cases)) {
        char area[64] = "####";
        EXPECT_EQ(conf_itoa(number, area, size), area);
        EXPECT_STREQ(area, expected);
    }
    EXPECT_EQ(conf_itoa(7, nullptr, 64), nullptr);
    for (const long number : {LONG_MIN, LONG_MIN + 1, -10L, 1000000L, LONG_MAX}) {
        char area[32];
        EXPECT_EQ(conf_itoa(number, area, sizeof area), std::to_string(number));
    }
}
