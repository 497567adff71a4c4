// zt-key.js against a stand-in bridge in this process: the channel's handshake and calls as the
// bridge sends them, its close codes, the size check before sending, one call at a time, and
// reconnecting after the service restarts. The real bridge is driven by the browser tests.

import { test } from 'node:test';
import assert from 'node:assert/strict';
import {
  ZtKey, CallFailedError, DisconnectedError, MessageTooLargeError, OriginNotApprovedError,
  ServiceNotRunningError, TokenRefusedError, blobToBase64, base64ToBytes,
} from '../zt-key.js';

const kMethods = ['WebOpenKey', 'WebCloseKey', 'WebVerifyPin', 'WebGetCertData', 'WebZtEncode',
                  'WebZtDecode', 'WebGetLastErrorMsg'];
const kSignatures = ['WebOpenKey()', 'WebCloseKey()', 'WebVerifyPin(QString)',
                     'WebGetCertData(QString)', 'WebZtEncode(QString,QString,qulonglong)',
                     'WebZtDecode(QString,qulonglong)', 'WebGetLastErrorMsg()'];
const kFirstIndex = 5;
const kWrongPin = '您输入的电子钥匙盘密码错误，请重新输入!';

function closeEvent(code, reason) {
  const event = new Event('close');
  Object.assign(event, { code, reason });
  return event;
}

// A bridge: `behaviour` is 'absent' (nothing listens), a close code to refuse with after the
// handshake, or 'serve'. Each connection has its own session, as the bridge's pages do.
class FakeBridge {
  constructor({ behaviour = 'serve', maxMessageBytes = 4096 } = {}) {
    this.behaviour = behaviour;
    this.maxMessageBytes = maxMessageBytes;
    this.sockets = [];
    this.received = [];
    this.holdAnswers = false;
    this.held = [];
    const bridge = this;
    this.WebSocket = class extends EventTarget {
      constructor(url) {
        super();
        this.url = url;
        bridge.sockets.push(this);
        this.session = { opened: false, verified: false, lastError: '' };
        setTimeout(() => bridge.accept(this), 0);
      }
      send(text) { bridge.receive(this, text); }
      close(code = 1000, reason = '') {
        if (this.closed)
          return;
        this.closed = true;
        setTimeout(() => this.dispatchEvent(closeEvent(code, reason)), 0);
      }
    };
  }

  accept(socket) {
    if (this.behaviour === 'absent') {
      socket.closed = true;
      socket.dispatchEvent(new Event('error'));
      socket.dispatchEvent(closeEvent(1006, ''));
      return;
    }
    socket.dispatchEvent(new Event('open'));
    if (typeof this.behaviour === 'number') {
      const reasons = { 4401: 'token refused', 4403: 'origin not approved' };
      socket.closed = true;
      socket.dispatchEvent(closeEvent(this.behaviour, reasons[this.behaviour]));
    }
  }

  answer(socket, message) {
    setTimeout(() => {
      if (!socket.closed)
        socket.dispatchEvent(Object.assign(new Event('message'), { data: JSON.stringify(message) }));
    }, 0);
  }

  receive(socket, text) {
    if (socket.closed)
      return;
    if (text.length > this.maxMessageBytes) {
      socket.closed = true;
      socket.dispatchEvent(closeEvent(1009, `message too large (limit ${this.maxMessageBytes} bytes)`));
      return;
    }
    const message = JSON.parse(text);
    this.received.push(message);
    if (message.type === 3) {
      this.answer(socket, {
        type: 10, id: message.id, data: {
          ZtCryptographic: {
            methods: kSignatures.flatMap((signature, i) => [
              [signature.slice(0, signature.indexOf('(')), kFirstIndex + i], [signature, kFirstIndex + i]]),
            properties: [], signals: [], enums: {},
          },
          bridge: {
            methods: [], signals: [], enums: {},
            properties: [[1, 'maxMessageBytes', [], this.maxMessageBytes], [2, 'mode', [], 'service'],
                         [3, 'version', [], '1.0.0']],
          },
        },
      });
      return;
    }
    if (message.type !== 6)
      return;
    const reply = { type: 10, id: message.id, data: this.call(socket.session, message) };
    if (this.holdAnswers)
      this.held.push(() => this.answer(socket, reply));
    else
      this.answer(socket, reply);
  }

  // The seven methods over one session, failing as the library does.
  call(session, { method, args }) {
    const name = kMethods[method - kFirstIndex];
    const fail = (value, text) => { session.lastError = text; return value; };
    switch (name) {
    case 'WebOpenKey': session.opened = true; session.verified = false; return true;
    case 'WebCloseKey': return true;
    case 'WebVerifyPin':
      if (args[0] !== '123456')
        return fail(false, kWrongPin);
      session.verified = true;
      return true;
    case 'WebGetCertData': return 'Q0VSVA==';
    case 'WebZtEncode': return '';
    case 'WebZtDecode':
      if (!session.verified)
        return fail('false', '未检测到电子密钥盘');
      return args[0];
    case 'WebGetLastErrorMsg': return session.lastError;
    default: return null;
    }
  }

  restart() {
    for (const socket of this.sockets) {
      if (!socket.closed) {
        socket.closed = true;
        socket.dispatchEvent(closeEvent(1006, ''));
      }
    }
  }
}

const nextEvent = (target, type) => new Promise((resolve) => target.addEventListener(type, resolve, { once: true }));

test('connects to the service port by default and reads the bridge object', async () => {
  const bridge = new FakeBridge({ maxMessageBytes: 5000 });
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket });
  assert.equal(bridge.sockets[0].url, 'ws://127.0.0.1:19731/bridge');
  assert.equal(key.state, 'connected');
  assert.deepEqual(key.bridge, { maxMessageBytes: 5000, mode: 'service', version: '1.0.0' });
  assert.deepEqual(bridge.received, [{ type: 3, id: 0 }, { type: 4 }], 'the handshake and idle notice, nothing more');
  key.close();
});

test('token mode puts the token in the address', async () => {
  const bridge = new FakeBridge();
  const key = await ZtKey.connect({ url: 'ws://127.0.0.1:41873/bridge', token: 'a b+c', WebSocket: bridge.WebSocket });
  assert.equal(bridge.sockets[0].url, 'ws://127.0.0.1:41873/bridge?token=a%20b%2Bc');
  key.close();
});

test('calls send exactly the fields of a channel call, by method index', async () => {
  const bridge = new FakeBridge();
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket });
  assert.equal(await key.openKey(), true);
  assert.equal(await key.verifyPin('123456'), true);
  assert.equal(await key.decode('QUJD'), 'QUJD');
  const calls = bridge.received.filter((m) => m.type === 6);
  assert.deepEqual(calls.map((m) => Object.keys(m).sort()), Array(3).fill(['args', 'id', 'method', 'object', 'type']));
  assert.deepEqual(calls.map((m) => [m.object, m.method, m.args]), [
    ['ZtCryptographic', 5, []], ['ZtCryptographic', 7, ['123456']], ['ZtCryptographic', 10, ['QUJD', 0x401]]]);
  key.close();
});

test('a failing call rejects with the library message of that call', async () => {
  const bridge = new FakeBridge();
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket });
  await key.openKey();
  await assert.rejects(key.verifyPin('000000'), (error) => {
    assert.ok(error instanceof CallFailedError);
    assert.equal(error.code, 'call-failed');
    assert.equal(error.method, 'WebVerifyPin');
    assert.equal(error.value, false);
    assert.equal(error.libraryMessage, kWrongPin);
    assert.equal(error.message, `WebVerifyPin failed: ${kWrongPin}`);
    return true;
  });
  assert.equal(await key.call('WebZtDecode', 'QUJD', 0x401), 'false', 'call() answers failure values as they are');
  key.close();
});

test('calls run one at a time, so a failure message is never another call\'s', async () => {
  const bridge = new FakeBridge();
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket });
  const wrong = key.verifyPin('000000');
  const decode = key.decode('QUJD');
  await assert.rejects(wrong, { libraryMessage: kWrongPin });
  await assert.rejects(decode, { libraryMessage: '未检测到电子密钥盘' });
  const order = bridge.received.filter((m) => m.type === 6).map((m) => m.method);
  assert.deepEqual(order, [7, 11, 10, 11], 'each call is followed by its own WebGetLastErrorMsg');
  key.close();
});

test('a call over the limit is refused before sending, with the sizes', async () => {
  const bridge = new FakeBridge({ maxMessageBytes: 1000 });
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket });
  const room = key.maxEnvelopeChars;
  // 100 bytes of call around the envelope, with the longest id and algorithm.
  assert.equal(room, 900);
  const sent = bridge.received.length;
  await assert.rejects(key.decode('A'.repeat(1000)), (error) => {
    assert.ok(error instanceof MessageTooLargeError);
    assert.equal(error.limit, 1000);
    assert.equal(error.size, 1073);
    return true;
  });
  assert.equal(bridge.received.length, sent, 'nothing was sent');
  assert.equal(await key.decode('A'.repeat(room)).catch((e) => e.code), 'call-failed', 'the largest envelope still goes');
  assert.equal(key.state, 'connected');
  key.close();
});

test('a close 1009 carries the limit from its reason', async () => {
  const bridge = new FakeBridge({ maxMessageBytes: 1000 });
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket, reconnect: false });
  bridge.maxMessageBytes = 500;  // the bridge's limit is lower than it said
  await assert.rejects(key.decode('A'.repeat(800)), (error) => {
    assert.ok(error instanceof MessageTooLargeError);
    assert.equal(error.limit, 500);
    assert.equal(error.message, 'the message was larger than the key service takes (limit 500 bytes)');
    return true;
  });
});

test('nothing listening is service-not-running', async () => {
  const bridge = new FakeBridge({ behaviour: 'absent' });
  await assert.rejects(ZtKey.connect({ WebSocket: bridge.WebSocket }), (error) => {
    assert.ok(error instanceof ServiceNotRunningError);
    assert.equal(error.code, 'service-not-running');
    assert.equal(error.url, 'ws://127.0.0.1:19731/bridge');
    return true;
  });
});

test('close 4403 is origin-not-approved and says how to approve', async () => {
  const bridge = new FakeBridge({ behaviour: 4403 });
  globalThis.location = { origin: 'https://site.example' };
  try {
    await assert.rejects(ZtKey.connect({ WebSocket: bridge.WebSocket }), (error) => {
      assert.ok(error instanceof OriginNotApprovedError);
      assert.equal(error.origin, 'https://site.example');
      assert.equal(error.message, 'the key service has not approved this site (https://site.example); approve it with: zthost origins add https://site.example');
      return true;
    });
  } finally {
    delete globalThis.location;
  }
});

test('close 4401 is token-refused', async () => {
  const bridge = new FakeBridge({ behaviour: 4401 });
  const key = new ZtKey({ WebSocket: bridge.WebSocket, token: 'wrong' });
  const states = [];
  key.addEventListener('statechange', (event) => states.push(event.detail.state));
  await assert.rejects(key.connect(), TokenRefusedError);
  assert.deepEqual(states, ['refused']);
});

test('after the service restarts, pending calls fail and the page gets a new session', async () => {
  const bridge = new FakeBridge();
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket });
  await key.openKey();
  await key.verifyPin('123456');
  bridge.holdAnswers = true;
  const pending = key.decode('QUJD');
  await new Promise((resolve) => setTimeout(resolve, 5));
  const reconnected = nextEvent(key, 'reconnected');
  bridge.holdAnswers = false;
  bridge.restart();
  await assert.rejects(pending, (error) => {
    assert.ok(error instanceof DisconnectedError);
    assert.equal(error.closeCode, 1006);
    return true;
  });
  assert.equal(key.state, 'reconnecting');
  await assert.rejects(key.openKey(), DisconnectedError, 'no calls while reconnecting');
  await reconnected;
  assert.equal(key.state, 'connected');
  assert.equal(bridge.sockets.length, 2);
  await assert.rejects(key.decode('QUJD'), { libraryMessage: '未检测到电子密钥盘' }, 'the new session has no PIN');
  key.close();
});

test('a refusal is not retried', async () => {
  const bridge = new FakeBridge();
  const key = await ZtKey.connect({ WebSocket: bridge.WebSocket });
  const refused = new Promise((resolve) => key.addEventListener('statechange', (event) => {
    if (event.detail.state === 'refused')
      resolve(event.detail.error);
  }));
  bridge.behaviour = 4403;
  bridge.restart();
  assert.ok(await refused instanceof OriginNotApprovedError);
  await new Promise((resolve) => setTimeout(resolve, 600));
  assert.equal(bridge.sockets.length, 2, 'one attempt, refused, and no more');
});

test('blobToBase64 reads in slices that join into one Base64 text', async () => {
  const bytes = new Uint8Array(10_000).map((_, i) => (i * 7) & 0xff);
  const progress = [];
  const text = await blobToBase64(new Blob([bytes]), { sliceBytes: 3 * 1000, onProgress: (done) => progress.push(done) });
  assert.equal(text, Buffer.from(bytes).toString('base64'));
  assert.deepEqual(progress, [3000, 6000, 9000, 10000]);
  assert.deepEqual(base64ToBytes(text), bytes);
  await assert.rejects(blobToBase64(new Blob([bytes]), { sliceBytes: 1000 }), RangeError);
});
