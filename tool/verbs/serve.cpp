// serve: what its arguments are; what it does with them is in tool/serve.h.
#include "tool/serve.h"

#include <memory>

#include "tool/verb.h"

namespace tabulo::tool {

namespace {

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<ServeOptions>();
    app.add_option("DIR", options->folders, "Folders of tables, or single tables; what comes later is served, too")
        ->required();
    app.add_option("--listen", options->listen, "Where to listen (127.0.0.1:8080); port 0 takes a free one")
        ->type_name("ADDRESS:PORT");
    app.add_option("--host", options->hosts, "A name by which the server is asked for, besides its address; repeatable")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app.add_option("--tls-certificate", options->certificate, "Encrypts: the certificate and its chain, with --tls-key")
        ->type_name("FILE.pem");
    app.add_option("--tls-key", options->key, "Its key")->type_name("FILE.pem");
    app.add_flag("--insecure", options->insecure, "Listen at an address that others can reach without encryption");
    return [options](Console& console) { runServe(console, *options); };
}

}  // namespace

const Verb serveVerb{"serve", "Shows tables as a page, while they are written",
                     "# the tables of a folder; the line that it prints opens the page\n"
                     "tabulo serve data\n"
                     "# two engines, at a port of your choice\n"
                     "tabulo serve /var/lib/engine-a /var/lib/engine-b --listen 127.0.0.1:9000\n"
                     "# for other machines, encrypted\n"
                     "tabulo serve data --listen 0.0.0.0:8443 --host desk.example.com --tls-certificate desk.pem "
                     "--tls-key desk-key.pem\n",
                     declare};

}  // namespace tabulo::tool
