#include "trial/live/host_product.h"

#include "foundation/format.h"
#include "foundation/property_list.h"
#include "util/ProductPaths.h"

#include <string>

namespace trial {

namespace {

using platform::text::format;

void install(const TrialRoot& root) {
    root.installApplication("HavrelHost");
    root.installApplication("HavrelViewer");
    root.logIn("bob");
    root.logIn("ann");
    root.write(hostPreferences, platform::property_list::toXml(platform::Dictionary{{"APP_Password", "app password"},
                                                                                    {"ConfiguredState", true},
                                                                                    {"EUsername", "ann@example.org"},
                                                                                    {"HavrelVersion", "7.1"},
                                                                                    {"HostClientSignature", "signed"},
                                                                                    {"HostDescription", "Office"},
                                                                                    {"hostID", "host-token"},
                                                                                    {"isServiceEnabled", true},
                                                                                    {"proxyTopic", "topic"},
                                                                                    {"sessionId", "client"},
                                                                                    {"trust_token", "trust-token"},
                                                                                    {"viewerToken", "viewer-token"}})
                                    .value());
}

/// All but the proxy list, which the trial itself answers.
void answerCalls(WebService& service) {
    const WebHeaders json{{"Content-Type", "application/json"}};
    service.answer("/hvlnew/getRemoteIP", {.body = R"({"remoteIp":"203.0.113.7"})", .headers = json});
    service.answer(
        "/hvlnew/api/config/v1/configureClients",
        {.body =
             R"({"status":"OK","message":"{\"error\":0,\"access_token\":\"a-token\",\"proxy_topic\":\"a-topic\"}"})",
         .headers = json});
    for (const char* name : {"update_host_info", "delete_havrel_account", "deactivate_machine"}) {
        service.answer("/cgi-bin/hvl/v1/" + std::string(name) + ".cgi", {.body = "OK"});
    }
}

/// An updater that pretends to work for half a minute, as long as its file is there: the stand-in for `killall` removes
/// that file and kills nothing.
void scriptUpdater(const Machine& machine) {
    const std::string runs = shellQuoted(machine.root.folder() / "updater runs");
    const std::string log = shellQuoted(updaterLog(machine));
    const std::string remove = findProgram("rm");
    writeProgram(machine.root.at(havrel::paths::hostSupport + "/HVLVersionUpdate"),
                 format(R"(#!/bin/sh
: > %@
echo 'HVLVersionUpdate started, for 30 s' >> %@
tenths=0
while [ -e %@ ] && [ $tenths -lt 300 ]; do
    sleep 0.1
    tenths=$((tenths + 1))
done
%@ -f %@
echo 'HVLVersionUpdate ended' >> %@
)",
                        runs, log, runs, remove, runs, log));
    machine.tools.script("killall", format(R"([ "$2" != HVLVersionUpdate ] || %@ -f %@)", remove, runs));
}

/// Lists only the trial's own processes; "ps aux" shows the session of the user at the trial's console.
void scriptProcessList(const Machine& machine) {
    const std::string session = shellQuoted(machine.root.at("/run/systemd/sessions/c1"));
    machine.tools.script("ps", format(R"(if [ "$*" != aux ]; then
    # The trial's updater is a script, known by its arguments only.
    PS_FORMAT=pid,tty,time,args %@ "$@" | grep -F %@
    exit
fi
user=ann
! grep -q UID=502 %@ || user=bob
echo "$user 7001 loginwindow console")",
                                      findProgram("ps").string(), shellQuoted(machine.root.folder()), session));
}

} // namespace

void installHostProduct(Machine& machine) {
    install(machine.root);
    answerCalls(machine.service);
    scriptUpdater(machine);
    scriptProcessList(machine);
}

std::filesystem::path updaterLog(const Machine& machine) { return machine.root.folder() / "updater.log"; }

} // namespace trial
