#include "recording/redaction.h"

#include "journal/json_sink.h"
#include "model/problem.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// What becomes of events in a recording without the passwords.
class Redacting : public ::testing::Test {
protected:
    std::string reduced(const event& what) {
        std::string line;
        json_sink lines([&](const std::string& each) { line = each; });
        lines.show_frames(true);
        lines.take(redaction_->reduce(what));
        if (forgets_)
            redaction_.emplace(paths_);
        return line;
    }

    std::string reduced(event what, const std::string& body) {
        const unique_nodes nodes = parse_nodes(body);
        what.body = nodes.get();
        return reduced(what);
    }

    std::string frame(direction way, const std::string& body) {
        return reduced({.kind = event_kind::frame, .who = ntp_, .way = way}, body);
    }

    std::string command(const std::string& line) {
        return reduced({.kind = event_kind::command, .text = line});
    }

    void learn(const std::string& configuration) {
        redaction_->learn(tree::from_xml("<config>" + configuration + "</config>"));
    }

    const peer ntp_{role::plugin, "ntp", 7};
    const std::vector<std::string> paths_{"/users/user/password", "/keys",
                                          "/users/user[name=\"eve\"]"};
    std::optional<redaction> redaction_{paths_};
    bool forgets_ = false; // after each event
};

// Each is the only line that tells of the value, which nothing has told of before.
TEST_F(Redacting, KeepsAValueOutOfEveryRoadThatItMayTake) {
    const outcome refused = outcome::error(5, "CANARY is too short");
    outcome status;
    status.data = parse_nodes("<users><user><password>CANARY</password></user></users>");
    outcome shown;
    shown.shown = "CANARY";
    event lost{.kind = event_kind::unreadable, .who = ntp_, .why = cause::no_xml};
    lost.text = "CANARY";
    const std::string asked = "<rpc><method>pull</method><params><path>/users</path></params>"
                              "<id>1</id></rpc>";
    const std::string answered = "<reply><result><data><users><user><name>x</name><password>CANARY"
                                 "</password></user></users></data></result><id>1</id></reply>";
    EXPECT_THAT(frame(direction::from_peer, asked), HasSubstr("/users"));
    EXPECT_THAT(frame(direction::to_peer, answered),
                HasSubstr("<name>x</name><password>(redacted)<"));
    forgets_ = true;
    const std::string all[] = {
        frame(direction::to_peer, answered),
        frame(direction::from_peer, "<rpc><method>push</method><params><path>/users/user[name=x]"
                                    "/password</path><data>CANARY</data></params></rpc>"),
        frame(direction::from_peer, "<reply><error><code>5</code><message>CANARY</message></error>"
                                    "</reply>"),
        frame(direction::from_peer,
              "<reply><result><data>CANARY</data></result><id>9</id></reply>"),
        frame(direction::to_peer, "<rpc><method>publish</method><params><info><path>/keys/key["
                                  "k='CANARY']</path></info></params></rpc>"),
        frame(direction::to_peer, "<rpc><method>publish</method><params><type>operate</type><info>"
                                  "<path>CANARY</path></info></params></rpc>"),
        reduced({.kind = event_kind::frame, .who = {role::agent, "admin", 8}},
                "<rpc message-id='CANARY'><edit><x>CANARY<!--CANARY--></x></edit></rpc>"),
        reduced({.kind = event_kind::request,
                 .who = ntp_,
                 .path = "/keys/key[k=CANARY]",
                 .result = &refused}),
        reduced({.kind = event_kind::request, .who = ntp_, .called = "status", .result = &status}),
        reduced({.kind = event_kind::notification, .why = cause::no_xml, .text = "<CANARY"}),
        reduced({.kind = event_kind::notification}, "<changed>CANARY</changed>"),
        reduced(lost),
        reduced({.kind = event_kind::output, .who = {role::program, "p", 9}, .text = "CANARY"}),
        reduced({.kind = event_kind::shown, .text = "12:00 CANARY"}),
        reduced({.kind = event_kind::outcome, .result = &shown}),
        reduced({.kind = event_kind::heading, .text = "CANARY"}),
        reduced({.kind = event_kind::fault, .text = "error 5 CANARY of CANARY"}),
        reduced({.kind = event_kind::warning, .path = "CANARY]", .text = "CANARY"}),
        reduced({.kind = event_kind::expectation, .text = "CANARY", .got = "CANARY"}),
        reduced({.kind = event_kind::expectation, .difference = "+ CANARY"}),
        reduced({.kind = event_kind::result, .mistake = "\"CANARY\" is no path"}),
        command("set /users/user[name=x]/password CANARY"),
        command("set /users <user><name>x</name><password>CANARY</password></user>"),
        command("set /keys \"CANARY"),
        command("set /keys/key[name=\"CANARY\"] <v/>"),
        command("show /users/user[password=\"CANARY\"]"),
        command("expect error 5 CANARY"),
        command("expect within 5 notification CANARY"),
        command("wait output CANARY"),
        command("CANARY"),
        command("expect contains by CANARY"),
        command("wait output /CANARY"),
        command("start /CANARY"),
        command("echo error 8150815"),
        reduced({.kind = event_kind::result, .id = "\"CANARY\""}),
        reduced({.kind = event_kind::request, .who = {role::agent, "admin", 8}, .id = "CANARY"}),
        command("wait output 8150815"),
        command("expect error 5 8150815"),
        reduced({.kind = event_kind::output, .text = "8150815"}),
        reduced({.kind = event_kind::expectation, .got = "8150815"}),
    };
    for (const std::string& line : all)
        EXPECT_THAT(line, Not(AnyOf(HasSubstr("CANARY"), HasSubstr("8150815"))));
}

// Where it is said by a name or as another value, it has to be known.
TEST_F(Redacting, KeepsAKnownValueOutOfNamesToo) {
    learn("<users><user><name>x</name><password>hunter2</password></user></users>"
          "<keys><one>a&amp;b\n  second line</one></keys><users><user><password>4711</password>"
          "</user></users>");
    const outcome refused = outcome::error(4711, "");
    const std::string all[] = {
        reduced({.kind = event_kind::request,
                 .who = {role::plugin, "ntp-hunter2", 7},
                 .method = "hunter2",
                 .id = "hunter2",
                 .path = "/hunter2/x[y='hunter2']",
                 .result = &refused}),
        reduced({.kind = event_kind::command, .text = "publish /x 4711", .place = "hunter2.sim:1"}),
        frame(direction::from_peer, "<hunter2/>"),
        frame(direction::from_peer,
              "<rpc xmlns='urn:hunter2'><method>push</method><params><path>/x</path><data><a b='"
              "hunter2'>4711</a><hunter2>hun<![CDATA[ter2]]></hunter2><c>my second line</c>"
              "<d>is a&amp;b</d></data></params><id>4711</id></rpc>"),
        command("wait active hunter2"),
    };
    for (const std::string& line : all)
        EXPECT_THAT(line, Not(AnyOf(HasSubstr("hunter2"), HasSubstr("4711"), HasSubstr("second"),
                                    HasSubstr("ter2"), HasSubstr("a&amp;b"))));
}

TEST_F(Redacting, LeavesWhatIsNoSecret) {
    learn("<users><user><name>eve</name><password>7</password></user></users>");
    const std::string data = "<net><mtu a=\"b\">1700</mtu><name>eth7</name></net>";
    EXPECT_THAT(frame(direction::from_peer, "<rpc><method>push</method><params><path>/net</path>"
                                            "<data>" +
                                                data + "</data></params><id>7</id></rpc>"),
                HasSubstr(R"(<data><net><mtu a=\"b\">1700</mtu><name>eth7</name></net></data>)"));
    EXPECT_THAT(command("set /users/user[name=\"bob\"]/shell \"/bin/sh -i\""),
                HasSubstr(R"(set /users/user[name=\"bob\"]/shell \"/bin/sh -i\")"));
    EXPECT_THAT(command("expect pulled by ntp old /net"),
                HasSubstr("expect pulled by ntp old /net"));
    EXPECT_THAT(command("publish /net mod 4"), HasSubstr("publish /net mod 4"));
    EXPECT_THAT(reduced({.kind = event_kind::result, .id = "\"a\""}),
                HasSubstr("\"id\":\"(redacted)\""));
    EXPECT_THAT(command("set /users <user><name>x</name><password>y</password></user>"),
                HasSubstr("<name>x</name><password>(redacted)</password>"));
}

TEST_F(Redacting, TellsByTheKeyOfAnEntryWhetherItIsMeant) {
    EXPECT_THAT(command("set /users <user><name>eve</name><shell>sh</shell></user>"),
                HasSubstr("set /users <user>(redacted)</user>"));
    EXPECT_THAT(command("set /users <user><name>bob</name><shell>csh</shell></user>"),
                HasSubstr("<name>bob</name><shell>csh</shell>"));
    EXPECT_THAT(command("set /users <user><name>eve<!----> </name><shell>sh</shell></user>"),
                HasSubstr("set /users <user>(redacted)</user>"));
    EXPECT_THAT(command("set /users <user><shell>sh</shell></user>"),
                HasSubstr("set /users <user>(redacted)</user>"));
}

TEST_F(Redacting, FindsAValueByWhicheverOfItsBeginningsIsKnown) {
    secrets known({"/a"});
    for (const char* each : {"aaaab", "aaaa", "aaaaaa", "bbbb", "aab"})
        known.learn(each);
    for (const char* each : {"aaaa", "xaaaaax", "bbbbb", "-aab-", "aab"})
        EXPECT_TRUE(known.stand_in(each)) << each;
    for (const char* each : {"", "aaa", "bbb", "aabb", "xaab"})
        EXPECT_FALSE(known.stand_in(each)) << each;
    for (int number = 10000; number < 80000; ++number)
        known.learn(std::to_string(number));
    EXPECT_TRUE(known.stand_in("anything"));
}

TEST_F(Redacting, RefusesWhatIsNoPath) {
    EXPECT_THROW(redaction({"password"}), problem);
    EXPECT_THROW(redaction({"/a[b"}), problem);
}

} // namespace
} // namespace pelmsim
