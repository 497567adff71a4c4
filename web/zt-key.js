// zt-key.js: a page's way to the USB key through the bridge of `zthost serve` on this machine.
//
//   import { ZtKey } from './zt-key.js';
//   const key = await ZtKey.connect();            // the service on 127.0.0.1:19731
//   await key.openKey();
//   await key.verifyPin(pin);
//   const plaintextBase64 = await key.decode(envelopeBase64);
//
// The bridge speaks Qt's web channel protocol over a WebSocket; this module speaks the few
// messages of it that the bridge accepts (the handshake, the idle notice and calls), so a site
// needs nothing else. Calls run one at a time, each followed by WebGetLastErrorMsg when it fails,
// so a failure always carries its own call's message. Every failure is a ZtKeyError whose `code`
// says what happened; see zt-key.d.ts for the whole interface.

export const kServicePort = 19731;
export const kObjectName = 'ZtCryptographic';
export const kBridgeObjectName = 'bridge';
// The algorithm of the library's envelopes (SM4-ECB content, SM2 key transport).
export const kEnvelopeAlgorithm = 0x401;

// Close codes and reasons the bridge sends (docs/BRIDGE_PROTOCOL.md).
const kCloseTokenRefused = 4401;
const kCloseOriginNotApproved = 4403;
const kCloseMessageTooLarge = 1009;
const kCloseAbnormal = 1006;

// The channel's message types.
const kTypeSignal = 1;
const kTypePropertyUpdate = 2;
const kTypeInit = 3;
const kTypeIdle = 4;
const kTypeInvoke = 6;
const kTypeResponse = 10;

// Waits between reconnection attempts after a connection that worked is lost.
const kReconnectDelaysMs = [250, 500, 1000, 2000, 4000];

export class ZtKeyError extends Error {
  constructor(code, message, details = {}) {
    super(message);
    this.name = 'ZtKeyError';
    this.code = code;
    Object.assign(this, details);
  }
}

// Nothing answered at the address: no open event, a close with 1006. The service is not running,
// or refused the connection before its handshake (another local user, or in token mode a page
// of another origin).
export class ServiceNotRunningError extends ZtKeyError {
  constructor(url) {
    super('service-not-running',
          `no key service answered at ${url}: it is not running, or it refused this connection before the handshake`,
          { url });
    this.name = 'ServiceNotRunningError';
  }
}

export class OriginNotApprovedError extends ZtKeyError {
  constructor(origin) {
    super('origin-not-approved',
          `the key service has not approved this site (${origin}); approve it with: zthost origins add ${origin}`,
          { origin, closeCode: kCloseOriginNotApproved });
    this.name = 'OriginNotApprovedError';
  }
}

export class TokenRefusedError extends ZtKeyError {
  constructor() {
    super('token-refused', 'the key bridge refused the access token of this address',
          { closeCode: kCloseTokenRefused });
    this.name = 'TokenRefusedError';
  }
}

// `size` is the message's size in bytes when it is known (a call refused before sending).
export class MessageTooLargeError extends ZtKeyError {
  constructor(limit, size) {
    super('message-too-large',
          size === undefined
            ? `the message was larger than the key service takes (limit ${limit} bytes)`
            : `the message is ${size} bytes, larger than the ${limit} the key service takes`,
          { limit, size });
    this.name = 'MessageTooLargeError';
  }
}

// The connection ended under a call or before one: the service stopped or restarted, or closed
// this page (closeCode and reason say why). A new connection is a new session: the key must be
// opened and the PIN verified again.
export class DisconnectedError extends ZtKeyError {
  constructor(closeCode, reason) {
    super('disconnected',
          reason ? `the key service closed the connection (${closeCode}: ${reason})`
                 : `the connection to the key service is closed (${closeCode})`,
          { closeCode, reason });
    this.name = 'DisconnectedError';
  }
}

// The library answered its failure value; `libraryMessage` is its WebGetLastErrorMsg text
// (Chinese, as the library words it).
export class CallFailedError extends ZtKeyError {
  constructor(method, value, libraryMessage) {
    super('call-failed', `${method} failed: ${libraryMessage || '(no message)'}`,
          { method, value, libraryMessage });
    this.name = 'CallFailedError';
  }
}

function isFailure(value) {
  return value === false || value === 'false';
}

// UTF-8 length of a text without copying it when it is ASCII, as Base64 is.
function utf8Length(text) {
  // eslint-disable-next-line no-control-regex
  if (/^[\x00-\x7f]*$/.test(text))
    return text.length;
  return new TextEncoder().encode(text).length;
}

function pageOrigin() {
  return typeof location !== 'undefined' && location.origin ? location.origin : '(unknown origin)';
}

function closeError(code, reason, url) {
  if (code === kCloseTokenRefused)
    return new TokenRefusedError();
  if (code === kCloseOriginNotApproved)
    return new OriginNotApprovedError(pageOrigin());
  if (code === kCloseMessageTooLarge) {
    const match = /limit (\d+) bytes/.exec(reason || '');
    return new MessageTooLargeError(match ? Number(match[1]) : undefined);
  }
  if (code === kCloseAbnormal && url !== undefined)
    return new ServiceNotRunningError(url);
  return new DisconnectedError(code, reason);
}

// Reads a Blob (a File from an <input type=file>) as Base64 in slices, letting the page run
// between them, so a file of tens of megabytes neither freezes the page nor passes through a
// text box. `onProgress(doneBytes, totalBytes)` is called after each slice.
export async function blobToBase64(blob, { onProgress, sliceBytes = 3 * 256 * 1024 } = {}) {
  if (sliceBytes % 3 !== 0)
    throw new RangeError('sliceBytes must be a multiple of 3, so that slices join into one Base64 text');
  const parts = [];
  for (let offset = 0; offset < blob.size; offset += sliceBytes) {
    const bytes = new Uint8Array(await blob.slice(offset, offset + sliceBytes).arrayBuffer());
    parts.push(bytesToBase64(bytes));
    if (onProgress)
      onProgress(Math.min(offset + sliceBytes, blob.size), blob.size);
    await new Promise((resolve) => setTimeout(resolve, 0));
  }
  return parts.join('');
}

export function bytesToBase64(bytes) {
  let binary = '';
  const chunk = 0x8000;
  for (let i = 0; i < bytes.length; i += chunk)
    binary += String.fromCharCode.apply(null, bytes.subarray(i, i + chunk));
  return btoa(binary);
}

export function base64ToBytes(text) {
  const binary = atob(text);
  const bytes = new Uint8Array(binary.length);
  for (let i = 0; i < binary.length; ++i)
    bytes[i] = binary.charCodeAt(i);
  return bytes;
}

// One connection to the bridge and its session. Made by ZtKey.connect; states:
// 'connecting', 'connected', 'reconnecting', 'refused', 'closed'. Events ('statechange',
// detail {state, error}; 'reconnected', detail {bridge}) are dispatched on the object.
export class ZtKey extends EventTarget {
  // options: url (the bridge's WebSocket address; default ws://127.0.0.1:PORT/bridge), port
  // (default 19731), token (token mode: the token of the page's address), reconnect (default
  // true), WebSocket (a constructor, for tests).
  static async connect(options = {}) {
    const key = new ZtKey(options);
    await key.#open();
    return key;
  }

  #url;
  #WebSocket;
  #reconnect;
  #socket = null;
  #state = 'connecting';
  #methods = new Map();  // name -> the index or name a call sends
  #bridge = { maxMessageBytes: null, mode: null, version: null };
  #pending = new Map();  // call id -> {resolve, reject}
  #nextId = 1;
  #queue = Promise.resolve();
  #retryTimer = null;
  #attempt = 0;
  #closedByPage = false;

  constructor(options = {}) {
    super();
    const port = options.port ?? kServicePort;
    let url = options.url ?? `ws://127.0.0.1:${port}/bridge`;
    if (options.token !== undefined)
      url += (url.includes('?') ? '&' : '?') + 'token=' + encodeURIComponent(options.token);
    this.#url = url;
    this.#WebSocket = options.WebSocket ?? globalThis.WebSocket;
    this.#reconnect = options.reconnect ?? true;
  }

  get state() { return this.#state; }
  // {maxMessageBytes, mode, version}; maxMessageBytes is null when the bridge does not say.
  get bridge() { return { ...this.#bridge }; }

  // The longest Base64 envelope decode() can send under the bridge's message limit, or null.
  get maxEnvelopeChars() {
    const limit = this.#bridge.maxMessageBytes;
    if (limit === null)
      return null;
    const overhead = utf8Length(this.#invokeText('WebZtDecode', ['', Number.MAX_SAFE_INTEGER],
                                                 Number.MAX_SAFE_INTEGER));
    return Math.max(0, limit - overhead);
  }

  openKey() { return this.#checked('WebOpenKey', []); }
  closeKey() { return this.#checked('WebCloseKey', []); }
  verifyPin(pin) { return this.#checked('WebVerifyPin', [String(pin)]); }
  // The library reads the key's SM2 encryption certificate whatever `certType` says.
  getCertData(certType = '') { return this.#checked('WebGetCertData', [String(certType)]); }
  // Answers '' when the recipient certificate (Base64; '' for the key's own) decodes.
  encode(dataBase64, certBase64 = '', algorithm = kEnvelopeAlgorithm) {
    return this.#checked('WebZtEncode', [dataBase64, certBase64, algorithm]);
  }
  // The envelope's plaintext, as Base64.
  decode(envelopeBase64, algorithm = kEnvelopeAlgorithm) {
    return this.#checked('WebZtDecode', [envelopeBase64, algorithm]);
  }
  // This page's last failure message ('' before any).
  lastErrorMessage() { return this.#serial(() => this.#invoke('WebGetLastErrorMsg', [])); }

  // One of the seven methods by its name, answering the library's value as is, failure values
  // included.
  call(method, ...args) { return this.#serial(() => this.#invoke(method, args)); }

  // Ends the connection and any reconnecting; calls then fail with DisconnectedError.
  close() {
    this.#closedByPage = true;
    clearTimeout(this.#retryTimer);
    if (this.#socket)
      this.#socket.close(1000, 'closed by the page');
    this.#setState('closed');
  }

  // Connects, or connects again after a refusal or a failed attempt (for example once the user
  // has approved the site); a connection still open is closed first.
  connect() { return this.reconnect(); }

  async reconnect() {
    this.#closedByPage = false;
    clearTimeout(this.#retryTimer);
    if (this.#socket) {
      this.#socket.close(1000, 'reconnecting');
      this.#socket = null;
      this.#failPending(new DisconnectedError(1000, 'reconnecting'));
    }
    this.#setState('connecting');
    await this.#open();
  }

  #setState(state, error) {
    if (this.#state === state && !error)
      return;
    this.#state = state;
    this.dispatchEvent(new CustomEvent('statechange', { detail: { state, error } }));
  }

  // Opens a connection and completes the channel's handshake; rejects with the typed error.
  #open() {
    return new Promise((resolve, reject) => {
      let opened = false;
      let ready = false;
      let socket;
      try {
        socket = new this.#WebSocket(this.#url);
      } catch (error) {
        reject(new ZtKeyError('bad-address', `cannot connect to ${this.#url}: ${error.message}`));
        return;
      }
      this.#socket = socket;
      socket.addEventListener('open', () => {
        opened = true;
        this.#send({ type: kTypeInit, id: 0 });
      });
      socket.addEventListener('message', (event) => {
        let message;
        try {
          message = JSON.parse(event.data);
        } catch (e) {
          return;
        }
        if (!ready && message.type === kTypeResponse && message.id === 0) {
          ready = true;
          this.#takeObjects(message.data || {});
          this.#send({ type: kTypeIdle });
          this.#attempt = 0;
          this.#setState('connected');
          resolve();
          return;
        }
        this.#receive(message);
      });
      socket.addEventListener('close', (event) => {
        if (this.#socket !== socket)
          return;
        this.#socket = null;
        const error = closeError(event.code, event.reason, opened ? undefined : this.#url);
        this.#failPending(error);
        if (!ready) {
          if (this.#state !== 'reconnecting' && !this.#closedByPage)
            this.#setState(error instanceof ServiceNotRunningError ? 'closed' : 'refused', error);
          reject(error);
          return;
        }
        this.#lost(error);
      });
    });
  }

  // A connection that worked has ended: try again unless the page closed it or it was refused.
  #lost(error) {
    if (this.#closedByPage)
      return;
    if (error instanceof TokenRefusedError || error instanceof OriginNotApprovedError
        || !this.#reconnect) {
      this.#setState(error instanceof DisconnectedError || error instanceof MessageTooLargeError
                       ? 'closed' : 'refused', error);
      return;
    }
    this.#setState('reconnecting', error);
    this.#scheduleRetry();
  }

  #scheduleRetry() {
    const delay = kReconnectDelaysMs[Math.min(this.#attempt, kReconnectDelaysMs.length - 1)];
    ++this.#attempt;
    this.#retryTimer = setTimeout(async () => {
      if (this.#closedByPage)
        return;
      try {
        await this.#open();
        this.dispatchEvent(new CustomEvent('reconnected', { detail: { bridge: this.bridge } }));
      } catch (error) {
        if (error instanceof TokenRefusedError || error instanceof OriginNotApprovedError)
          this.#setState('refused', error);
        else if (!this.#closedByPage)
          this.#scheduleRetry();
      }
    }, delay);
  }

  #takeObjects(objects) {
    this.#methods.clear();
    for (const [name, index] of objects[kObjectName]?.methods || []) {
      // A full signature is called by its index, as qwebchannel.js does.
      if (typeof name === 'string' && name.endsWith(')'))
        this.#methods.set(name.slice(0, name.indexOf('(')), index);
    }
    const bridge = { maxMessageBytes: null, mode: null, version: null };
    for (const property of objects[kBridgeObjectName]?.properties || []) {
      const [, name, , value] = property;
      if (name in bridge)
        bridge[name] = value;
    }
    this.#bridge = bridge;
  }

  #receive(message) {
    if (message.type === kTypeResponse && this.#pending.has(message.id)) {
      const { resolve } = this.#pending.get(message.id);
      this.#pending.delete(message.id);
      resolve(message.data);
    } else if (message.type === kTypePropertyUpdate) {
      this.#send({ type: kTypeIdle });
    } else if (message.type === kTypeSignal) {
      // The bridge publishes no signals a page uses.
    }
  }

  #failPending(error) {
    for (const { reject } of this.#pending.values())
      reject(error);
    this.#pending.clear();
  }

  #send(message) {
    this.#socket.send(typeof message === 'string' ? message : JSON.stringify(message));
  }

  #invokeText(method, args, id) {
    return JSON.stringify({ type: kTypeInvoke, object: kObjectName,
                            method: this.#methods.get(method) ?? method, args, id });
  }

  #invoke(method, args) {
    if (this.#state !== 'connected' || !this.#socket)
      return Promise.reject(new DisconnectedError(0, `not connected (${this.#state})`));
    const id = this.#nextId++;
    const text = this.#invokeText(method, args, id);
    const limit = this.#bridge.maxMessageBytes;
    if (limit !== null) {
      const size = utf8Length(text);
      if (size > limit)
        return Promise.reject(new MessageTooLargeError(limit, size));
    }
    return new Promise((resolve, reject) => {
      this.#pending.set(id, { resolve, reject });
      this.#send(text);
    });
  }

  // Runs `work` after every earlier call has ended.
  #serial(work) {
    const run = this.#queue.then(work, work);
    this.#queue = run.catch(() => {});
    return run;
  }

  // A call whose failure value becomes a CallFailedError with this page's message.
  #checked(method, args) {
    return this.#serial(async () => {
      const value = await this.#invoke(method, args);
      if (!isFailure(value))
        return value;
      let message = '';
      try {
        message = await this.#invoke('WebGetLastErrorMsg', []);
      } catch (e) {
        // The connection went between the two calls; the failure stands without its text.
      }
      throw new CallFailedError(method, value, message);
    });
  }
}
