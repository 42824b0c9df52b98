// The C++ face of the library, compiled twice: with exceptions and without.
#include "support/plugin.h"

#include <pelmconf.hpp>

econf_plugin_subpub_info_t* table_of_the_other_kind(); // a status at slot 1, "other"

namespace {

using pelmconf::error;
using pelmconf::result;
using pelmconf::tree;

// What a call gave, and what it failed with: the same of both kinds.
template <class T> T value_of(T given) { return given; }
template <class T> T value_of(result<T> given) { return *std::move(given); }
std::string shown(const error& why) { return std::to_string(why.code()) + " " + why.what(); }
template <class Call> std::string failure_of(Call call) {
#ifdef __cpp_exceptions
    try {
        static_cast<void>(call());
        return "";
    } catch (const error& why) {
        return shown(why);
    }
#else
    const auto given = call();
    return given ? "" : shown(given.failure());
#endif
}

// A tree that has gone before the answer is read would be noticed.
tree config() { return tree("ntp").add("server", "a&b").add("port", 123).add("on", true); }

class Cxx : public PluginTest {
protected:
    // Registers p in the way of C, and makes it active.
    void start(pelmconf::plugin_base& p) { start(value_of(p.table())); }
    void start(econf_plugin_subpub_info_t* table) {
        daemon_.will_answer(answer("<result/>", 1));
        ASSERT_GE(econf_plugin_init("ntp", table), 0);
        daemon_.will_answer(answer("<result/>"));
        ASSERT_EQ(econf_plugin_activate(ACTIVATE_WITH_NONE), 0);
        (void)daemon_.received();
    }
    // Asks the callable of that slot; answered with what is in the reply beside its id.
    std::string ask(const std::string& kind, int slot, const std::string& info = "") {
        const std::string head = kind == "subscribe" ? "" : "<type>" + kind + "</type>";
        const std::string body = kind == "subscribe" ? info : "<info>" + info + "</info>";
        const std::string params = head + text("<callback>%d</callback>", slot) + body;
        daemon_.send(frame_of(rpc(kind == "subscribe" ? kind : "publish", params, 9)));
        econf_plugin_run();
        static const std::regex envelope("<reply>(.*)<id>9</id></reply>");
        return std::regex_replace(daemon_.received(), envelope, "$1");
    }
};

std::string refusal(int code, const std::string& text) {
    return "<error><code>" + std::to_string(code) + "</code><message>" + text +
           "</message></error>";
}

} // namespace

TEST(CxxText, HasAQuestionMarkForEachByteThatXmlDoesNotAllow) {
    using namespace std::string_literals;
    EXPECT_EQ(pelmconf::fit_for_xml("a\tb\r\n\x7f\u00e4\u20ac\U0001f642"),
              "a\tb\r\n\x7f\u00e4\u20ac\U0001f642");
    EXPECT_EQ(pelmconf::fit_for_xml("\x01\x1f|\x00|\xff"s), "??|?|?");
    EXPECT_EQ(pelmconf::fit_for_xml("\xc3|\xc0\x80|\xe0\x80\x80"), "?|??|???"); // cut, overlong
    EXPECT_EQ(pelmconf::fit_for_xml("\xed\xa0\x80|\xef\xbf\xbe"), "???|???");   // surrogate, none
    EXPECT_EQ(pelmconf::fit_for_xml("\xf4\x90\x80\x80|\xf0\x80\x80\x80"), "????|????");
}

TEST(CxxTree, IsBuiltReadAndHandedOn) {
    tree built = config();
    EXPECT_EQ(built.xml(), "<ntp><server>a&amp;b</server><port>123</port><on>true</on></ntp>");
    EXPECT_EQ(built.leaf("server"), "a&b");
    EXPECT_EQ(built.leaf("none"), std::nullopt);
    EXPECT_EQ(tree().text(), std::nullopt);
    EXPECT_EQ(tree("a", '0').text(), "0");
    std::string names;
    for (const pelmconf::node each : built.children())
        names += each.name() + ("=" + each.text()) + ";";
    EXPECT_EQ(names, "server=a&b;port=123;on=true;");

    tree more = std::move(built);
    EXPECT_FALSE(built); // NOLINT: moved from, and empty
    more.append(tree("bad", "\x01")).append(tree::copy_of(more.children()));
    EXPECT_EQ(more.xml(), config().xml() + "<bad>?</bad><server>a&amp;b</server><port>123</port>"
                                           "<on>true</on>");
    const tree adopted(more.release());
    EXPECT_FALSE(more);
    const tree all = tree("all").add(tree::copy_of(adopted));
    EXPECT_EQ(all.first().children().find("bad").text(), "?");
}

TEST(CxxTree, WipesItsTexts) {
    const tree nested = tree("a").add(tree("b", "secret"));
    tree wiped = tree::copy_of(nested);
    const xmlNode* text = wiped.children().first().get()->children;
    wiped.wipe();
    EXPECT_EQ(std::string(text->content, text->content + 6), std::string(6, '\0'));
    EXPECT_EQ(nested.children().first().text(), "secret");
}

// The obvious loop over what a call returns would look into a tree that is gone.
constexpr auto children = [](auto&& of) -> decltype(std::forward<decltype(of)>(of).children()) {
    return of.children();
};
static_assert(std::is_invocable_v<decltype(children), tree&>);
static_assert(!std::is_invocable_v<decltype(children), tree>);

TEST_F(Cxx, CallsCallablesWithWhatTheDaemonSays) {
    pelmconf::plugin p("ntp");
    std::string seen;
    p.on_change("/c", 7, [&, owned = std::make_unique<int>(1)](const pelmconf::change& c) {
        seen = text("%s %d %d %d %d %d", c.path, c.session, c.priority, c.operations.bits(),
                    c.operations.has(CONFIG_OP_ADD | CONFIG_OP_RM) + *owned,
                    c.rolled_back() + c.more());
    });
    p.on_change("/d", 1, [&] { seen = "second"; });
    p.on_status("/s", [](const pelmconf::status_query& asked) {
        return tree("state").add("at", asked.path).add("by", asked.filter);
    });
    p.on_operation("/o", [](const pelmconf::operation& given) {
        return tree("was", *given.input.text()).append(tree("is", given.input.find("n").text()));
    });
    p.on_operation("/p", [] {}).on_kick_off([&] { seen = "kick-off"; });
    start(p);

    EXPECT_EQ(ask("config", 1, "<oper-type>32770</oper-type><path>/c</path>"), "<result/>");
    EXPECT_EQ(seen, "/c -1 7 32770 2 1");
    EXPECT_EQ(ask("config", 2), "<result/>");
    EXPECT_EQ(seen, "second");
    EXPECT_EQ(ask("subscribe", 3, "<path>/s/x</path>"),
              "<result><path>/s/x</path><data><state><at>/s/x</at><by/></state></data></result>");
    EXPECT_EQ(ask("operate", 4, "<k>1</k><n>2</n>"), "<result><was>1</was><is>2</is></result>");
    EXPECT_EQ(ask("operate", 5), "<result><ok/></result>");
    daemon_.send(frame_of(rpc("kickoff", "", 9)));
    p.serve();
    EXPECT_EQ(seen, "kick-off");
}

TEST_F(Cxx, AnswersWhatACallableFailsWith) {
    const std::function<result<tree>()> failures[] = {
        [] { return error(5, "<no>\xff"); },
        [] { return error(0, "zero"); },
        [] { return error(6); },
#ifdef __cpp_exceptions
        []() -> tree { throw error(5, "<no>\xff"); },
        []() -> tree { throw error(0, "zero"); },
        []() -> tree { throw error(6); },
        []() -> tree { throw std::runtime_error("a\x01"); },
        []() -> tree { throw 7; },
#endif
    };
    const std::string answers[] = {
        refusal(5, "&lt;no&gt;?"),
        refusal(-1, "zero"),
        refusal(6, "Service process failed."),
        refusal(5, "&lt;no&gt;?"),
        refusal(-1, "zero"),
        refusal(6, "Service process failed."),
        refusal(-1, "a?"),
        refusal(-1, "Service process failed."),
    };
    std::size_t at = 0;
    const auto fail = [&] { return failures[at](); };
    pelmconf::basic_plugin<1> p("ntp");
    p.on_change("/c", 1, [&]() -> result<> { return fail().failure(); });
    p.on_status("/s", fail).on_operation("/o", fail).on_kick_off([&]() -> result<> {
        return fail().failure();
    });
    start(p);
    for (at = 0; at < std::size(failures); ++at) {
        for (const auto& [kind, slot] :
             {std::pair("config", 1), std::pair("subscribe", 2), std::pair("operate", 3)})
            EXPECT_EQ(ask(kind, slot), answers[at]) << kind << at;
        daemon_.send(frame_of(rpc("kickoff", "", 9)));
        p.serve();
        EXPECT_EQ(daemon_.received(), reply("<result/>", 9));
    }
    EXPECT_THAT(log(), testing::HasSubstr("Plugin kickoff have error zero now."));
}

TEST_F(Cxx, ReadsWhatHasChanged) {
    pelmconf::plugin p("ntp");
    std::string seen;
    p.on_change("/c", 1, [&](const pelmconf::change& c) {
        if (*c.path == '\0')
            seen = failure_of([&] { return c.after(); });
        else
            seen = value_of(c.before()).xml();
    });
    start(p);
    daemon_.will_answer(answer("<result><data><c>1</c></data></result>"));
    EXPECT_EQ(ask("config", 1, "<path>/c</path>"),
              "<rpc><method>pull</method><params><old/><path>/c</path></params><id>3</id></rpc>"
              "<result/>");
    EXPECT_EQ(seen, "<c>1</c>");
    EXPECT_EQ(ask("config", 1), "<result/>");
    EXPECT_EQ(seen, "-1 The daemon named no path.");
}

TEST_F(Cxx, SaysWhatItCannotStart) {
#ifdef __cpp_exceptions
    void (*const nothing)() = nullptr;
    EXPECT_THROW(pelmconf::plugin("n").on_kick_off(nothing), std::logic_error);
    EXPECT_THROW(pelmconf::plugin("n").on_status("/s", std::function<tree()>()), std::logic_error);
#endif
    pelmconf::basic_plugin<2> small("small");
    small.on_status("/1", [] {}).on_status("/2", [] {}).on_status("/3", [] {});
    EXPECT_EQ(failure_of([&] { return small.start(); }),
              "-1 The plugin small has 3 callables of a kind and 2 slots: make it a "
              "pelmconf::basic_plugin<3>.");
    pelmconf::plugin refused("ntp");
    daemon_.will_answer(answer("<error><code>1</code></error>", 1));
    EXPECT_EQ(failure_of([&] { return refused.start(); }),
              "-1 There is no daemon, or it did not take the plugin ntp; the plugin log says why.");
    EXPECT_EQ(refused.context(), nullptr);

    pelmconf::plugin other("other");
    start(refused);
    EXPECT_EQ(failure_of([&] { return other.table(); }),
              "-1 Another plugin of the process is being served.");
    EXPECT_EQ(failure_of([&] { return other.start(); }), "-1 The process has a plugin already.");
    other.close();
    EXPECT_EQ(refused.context(), get_plugin_context());
    EXPECT_EQ(failure_of([] { return pelmconf::push("/a", pelmconf::nodes()); }),
              "-1 The daemon took no data.");
    refused.close();
    EXPECT_EQ(get_plugin_context(), nullptr);
    start(other);
    EXPECT_NE(other.context(), nullptr);
}

TEST_F(Cxx, IsOneWhoseCallablesAreServed) {
    pelmconf::plugin a("a");
    pelmconf::plugin b("b");
    a.on_status("/s", [] { return tree("a"); });
    const auto stale = value_of(a.table())->status_cbs[0].callback;
    EXPECT_EQ(failure_of([&] { return b.table(); }),
              "-1 Another plugin of the process is being served.");
    a.close();
    start(b);
    xmlNode* status = nullptr;
    EXPECT_EQ(stale(0, "/s", "", &status), -1);
    EXPECT_STREQ(b.context()->err_msg, "The plugin has ended.");
}

TEST_F(Cxx, LeavesAPluginThatIsNotItsOwnAlone) {
    auto p = std::make_unique<pelmconf::plugin>("ntp");
    start(*p);
    econf_plugin_close();
    start(&one_of_each);
    EXPECT_EQ(p->context(), nullptr);
    p->deactivate();
    EXPECT_EQ(failure_of([&] { return p->activate(); }), "-1 The plugin cannot go active.");
    EXPECT_TRUE(context()->bit_activate);
    p->close();
    econf_plugin_close();

    daemon_.will_answer(answer("<error><code>1</code></error>", 1));
    EXPECT_NE(failure_of([&] { return p->start(); }), "");
    start(table_of_the_other_kind());
    p.reset();
    EXPECT_EQ(ask("subscribe", 1), "<result><path/><data><other/></data></result>");
    econf_plugin_close();
}

TEST_F(Cxx, RefusesForTheConnectionThatAsked) {
    pelmconf::plugin p("ntp");
    p.on_status("/s", [&]() -> result<tree> {
        p.close();
        start(p);
        return error(5, "late");
    });
    start(p);
    EXPECT_EQ(ask("subscribe", 1), "");
    EXPECT_EQ(p.context()->err_msg, nullptr);
}

TEST_F(Cxx, OutlivesACallableThatEndsIt) {
    auto p = std::make_unique<pelmconf::plugin>("ntp");
    std::string seen = "nothing";
    p->on_status("/s", [&, kept = std::string("kept")] {
        p.reset();
        seen = kept;
        return tree("late");
    });
    start(*p);
    EXPECT_EQ(ask("subscribe", 1), "");
    EXPECT_EQ(seen, "kept");
    EXPECT_EQ(get_plugin_context(), nullptr);
}

TEST_F(Cxx, OfAChildClosesAndRemovesNothing) {
    pelmconf::plugin p("ntp");
    p.on_change("/c", 1, [] {});
    start(p);
    std::optional door = value_of(pelmconf::daemon::agent_endpoint::open());
    std::ofstream("/mnt/squash/local/etc/pelmd/pelmd.conf") << "{}"; // the table's key
    std::optional table = value_of(pelmconf::client_table::create(1));
    const pid_t child = fork();
    if (child == 0) {
        const int sock = door->descriptor();
        p.close();
        door.reset();
        table.reset();
        _exit(p.context() == nullptr && fcntl(sock, F_GETFD) < 0 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ask("config", 1), "<result/>");
    EXPECT_EQ(failure_of([] { return pelmconf::agent::connect(); }), "");
    EXPECT_EQ(failure_of([] { return pelmconf::client_table::save({}); }), "");
}

TEST_F(Cxx, TalksAsAnAgentAndAsTheDaemon) {
    namespace daemon = pelmconf::daemon;
    const auto door = value_of(daemon::agent_endpoint::open());
    auto agent = value_of(pelmconf::agent::connect());
    const conf::unique_fd peer{accept(door.descriptor(), nullptr, nullptr)};
    EXPECT_EQ(failure_of([&] { return agent.get_capability(7); }), "");
    EXPECT_EQ(failure_of([&] { return agent.create_subscription(70000); }), "");
    EXPECT_TRUE(value_of(agent.send()));

    pelmconf::frame_reader heard;
    EXPECT_TRUE(value_of(pelmconf::read_into(heard, peer.get())));
    EXPECT_EQ(value_of(heard.next())->seq, 7U);
    const tree told = value_of(heard.next_tree());
    EXPECT_EQ(told.children().first().name(), "create-subscription"s);
    EXPECT_FALSE(value_of(heard.next_tree()));

    tree asked = value_of(daemon::build_rpc("pull", tree("params").add("path", "/a"), 5));
    const auto parsed = value_of(daemon::parse_rpc(asked.first()));
    EXPECT_EQ(parsed.method + parsed.params.leaf("path").value(), "pull/a");
    const tree reply =
        value_of(daemon::build_reply(tree("error").add("code", 4).add("message", "no"), parsed.id));
    const auto split = value_of(daemon::parse_reply(reply.first()));
    EXPECT_EQ(std::to_string(split.code) + split.text, "4no");

    pelmconf::buffer output;
    EXPECT_EQ(failure_of([&] { return output.append("more than an int counts"); }), "");
    output.remove(std::size_t{1} << 31U);
    EXPECT_EQ(output.content(), "");
    EXPECT_EQ(failure_of([&] {
                  return output.append(value_of(pelmconf::frame_of(reply, 5)) + "no frame!!!!");
              }),
              "");
    EXPECT_TRUE(value_of(pelmconf::write_from(output, peer.get())));
    EXPECT_EQ(value_of(agent.receive())->body, reply.xml());
    EXPECT_EQ(failure_of([&] { return agent.receive(); }), "-1 No frame begins here.");
    (void)shutdown(peer.get(), SHUT_RDWR);
    EXPECT_FALSE(value_of(agent.read()));
    EXPECT_EQ(failure_of([&] { return agent.get_capability(8); }), "");
    EXPECT_EQ(failure_of([&] { return agent.send(); }), "-1 Cannot write: Broken pipe.");
}

TEST_F(Cxx, ServesThePluginInTheDaemon) {
    pelmconf::daemon::hooks hooks;
    std::string seen;
    hooks.pull = [](bool old, const char* path) { return tree(old ? "old" : "new", path); };
    hooks.push = [&](const char* path, pelmconf::nodes data) -> result<> {
        seen = path + data.text().value();
        return error(3, "not now");
    };
    EXPECT_EQ(failure_of([&] { return pelmconf::daemon::install(std::move(hooks)); }), "");
    EXPECT_EQ(value_of(pelmconf::pull_before("/a")).xml(), "<old>/a</old>");
    EXPECT_EQ(econf_plugin_push("/a", tree("b", "c").get()), 3);
    EXPECT_EQ(seen, "/ac");
    EXPECT_EQ(failure_of([] { return pelmconf::locate("/a"); }), "-1 Cannot locate /a.");
    EXPECT_EQ(failure_of([] { return pelmconf::daemon::install({}); }),
              "-1 The process has hooks already.");
}

TEST_F(Cxx, HasTheRestOfTheInterface) {
    const std::string schema = "/n:a/n:b[k=\"v\"]";
    EXPECT_EQ(pelmconf::path_schema2std(schema), "/n:a/b");
    EXPECT_EQ(pelmconf::path_data2std(schema), "/n:a/b[k=\"v\"]");
    EXPECT_EQ(pelmconf::path_std2db(schema), "/n/a/b[k=\"v\"]");
    for (const int level : {DBG_CRIT - 1, DBG_ALL + 1, -1})
        EXPECT_EQ(failure_of([=] { return pelmconf::log_up_to(level); }),
                  "-1 There is no such level of the log.");
    EXPECT_EQ(failure_of([] { return pelmconf::notify("n", "text"); }),
              "-1 The notification was not sent.");
    const auto door = value_of(pelmconf::daemon::notifier_endpoint::open());
    EXPECT_EQ(failure_of([] { return pelmconf::notify("n", tree("up", 1)); }), "");
    char datagram[32] = {};
    EXPECT_EQ(recv(door.descriptor(), datagram, sizeof datagram, 0), 10);
    EXPECT_STREQ(datagram, "<up>1</up>");
    EXPECT_EQ(pelmconf::client_table::find(1), std::nullopt);
}
