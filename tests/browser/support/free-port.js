import { createServer } from 'node:net';

// Returns a port of this machine that nothing listens on.
export async function freePort() {
    const probe = createServer();
    await new Promise((listening) => probe.listen(0, '127.0.0.1', listening));
    const { port } = probe.address();
    await new Promise((closed) => probe.close(closed));
    return port;
}
