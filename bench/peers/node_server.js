// node_server.js PORT: GetPos and Grip as constants, on Node and its usual XML-RPC package.
"use strict";

const xmlrpc = require("xmlrpc");

const port = Number(process.argv[2]);
const server = xmlrpc.createServer({host: "127.0.0.1", port}, () => console.log("started"));
server.httpServer.on("error", (error) => {
    console.error(`node_server.js: error: ${error.message}`);
    process.exit(1);
});
server.on("GetPos", (error, parameters, callback) => callback(error, 25.0));
server.on("Grip", (error, parameters, callback) => callback(error, 0));
process.on("SIGINT", () => process.exit(0));
