// Type declarations of zt-key.js: a page's way to the USB key through `zthost serve`.

/** The service's default port (`zthost serve --service`). */
export const kServicePort: 19731;
export const kObjectName: 'ZtCryptographic';
export const kBridgeObjectName: 'bridge';
/** The algorithm of the library's envelopes. */
export const kEnvelopeAlgorithm: 0x401;

export type ZtKeyErrorCode =
  | 'service-not-running'
  | 'origin-not-approved'
  | 'token-refused'
  | 'message-too-large'
  | 'disconnected'
  | 'call-failed'
  | 'bad-address';

export class ZtKeyError extends Error {
  readonly code: ZtKeyErrorCode;
}
/** Nothing answered: the service is not running, or refused the connection before its handshake. */
export class ServiceNotRunningError extends ZtKeyError {
  readonly code: 'service-not-running';
  readonly url: string;
}
/** Service mode: this page's origin is not approved (close 4403). */
export class OriginNotApprovedError extends ZtKeyError {
  readonly code: 'origin-not-approved';
  readonly origin: string;
  readonly closeCode: 4403;
}
/** Token mode: the token is missing or wrong (close 4401). */
export class TokenRefusedError extends ZtKeyError {
  readonly code: 'token-refused';
  readonly closeCode: 4401;
}
/** A call over the bridge's message limit: refused before sending (size known) or closed with 1009. */
export class MessageTooLargeError extends ZtKeyError {
  readonly code: 'message-too-large';
  readonly limit: number | undefined;
  readonly size: number | undefined;
}
/** The connection ended before or during the call; a new connection is a new session. */
export class DisconnectedError extends ZtKeyError {
  readonly code: 'disconnected';
  readonly closeCode: number;
  readonly reason: string;
}
/** The library answered its failure value; libraryMessage is its WebGetLastErrorMsg text. */
export class CallFailedError extends ZtKeyError {
  readonly code: 'call-failed';
  readonly method: ZtMethod;
  readonly value: false | 'false';
  readonly libraryMessage: string;
}

export type ZtMethod =
  | 'WebOpenKey'
  | 'WebCloseKey'
  | 'WebVerifyPin'
  | 'WebGetCertData'
  | 'WebZtEncode'
  | 'WebZtDecode'
  | 'WebGetLastErrorMsg';

export type ZtKeyState = 'connecting' | 'connected' | 'reconnecting' | 'refused' | 'closed';

export interface BridgeInfo {
  /** The largest message the page may send, in bytes; null if the bridge does not say. */
  maxMessageBytes: number | null;
  mode: 'token' | 'service' | null;
  version: string | null;
}

export interface ZtKeyOptions {
  /** The bridge's WebSocket address; default `ws://127.0.0.1:${port}/bridge`. */
  url?: string;
  /** Default 19731. */
  port?: number;
  /** Token mode: the token of the page's address. */
  token?: string;
  /** Connect again after a connection that worked is lost (default true). */
  reconnect?: boolean;
  /** A WebSocket constructor, for tests. */
  WebSocket?: { new (url: string): WebSocket };
}

export interface StateChangeDetail {
  state: ZtKeyState;
  error?: ZtKeyError;
}

export class ZtKey extends EventTarget {
  /** Connects and completes the handshake; rejects with a ZtKeyError subclass. */
  static connect(options?: ZtKeyOptions): Promise<ZtKey>;
  constructor(options?: ZtKeyOptions);

  readonly state: ZtKeyState;
  readonly bridge: BridgeInfo;
  /** The longest Base64 envelope decode() can send, or null when the limit is unknown. */
  readonly maxEnvelopeChars: number | null;

  /** Resolves true; a failure rejects with CallFailedError. */
  openKey(): Promise<true>;
  closeKey(): Promise<true>;
  verifyPin(pin: string): Promise<true>;
  /** The key's SM2 encryption certificate as Base64; the library ignores certType. */
  getCertData(certType?: string): Promise<string>;
  /** Resolves '' when the recipient certificate ('' for the key's own) decodes. */
  encode(dataBase64: string, certBase64?: string, algorithm?: number): Promise<string>;
  /** The envelope's plaintext as Base64. */
  decode(envelopeBase64: string, algorithm?: number): Promise<string>;
  /** This page's last failure message ('' before any). */
  lastErrorMessage(): Promise<string>;
  /** A method by name, answering the library's value as is (failure values included). */
  call(method: ZtMethod, ...args: Array<string | number>): Promise<boolean | string>;

  close(): void;
  /** Connects (again); rejects like ZtKey.connect. Keeps the object's listeners. */
  connect(): Promise<void>;
  /** The same as connect(). */
  reconnect(): Promise<void>;

  addEventListener(type: 'statechange', listener: (event: CustomEvent<StateChangeDetail>) => void): void;
  addEventListener(type: 'reconnected', listener: (event: CustomEvent<{ bridge: BridgeInfo }>) => void): void;
  addEventListener(type: string, listener: EventListenerOrEventListenerObject | null): void;
}

/** Reads a Blob as Base64 in slices, letting the page run between them. */
export function blobToBase64(
  blob: Blob,
  options?: { onProgress?: (doneBytes: number, totalBytes: number) => void; sliceBytes?: number },
): Promise<string>;
export function bytesToBase64(bytes: Uint8Array): string;
export function base64ToBytes(text: string): Uint8Array;
