// The demo page: the key's seven methods through zt-key.js, in the order a user needs them (open
// the key, verify the PIN, then the rest), one call at a time with the page showing which. The
// access token comes from this page's own address; the PIN goes nowhere but the call.

import { ZtKey, base64ToBytes, blobToBase64 } from './zt-key.js';

const $ = (id) => document.getElementById(id);
const kShownChars = 160;
// Plaintexts up to this size that are UTF-8 show in the page; anything else is a download.
const kShownPlaintextBytes = 64 * 1024;
// A file whose first bytes are all Base64 characters or blanks is taken as Base64 text.
const kSniffBytes = 64 * 1024;
const kStages = ['disconnected', 'connected', 'opened', 'verified'];

let key = null;
let stage = 'disconnected';
let busy = false;
let fileEnvelope = null;  // the chosen file as Base64, kept out of the text box

const number = (value) => value.toLocaleString('en');
const hasChinese = (text) => /[\u3400-\u9fff\uff00-\uffef]/.test(text);

function setState(id, state, text) {
  const element = $(id);
  element.dataset.state = state;
  element.textContent = text;
}

// The library's messages are Chinese: marked so, for screen readers and fonts.
function textNode(text) {
  const span = document.createElement('span');
  span.textContent = text;
  if (hasChinese(text))
    span.lang = 'zh-CN';
  return span;
}

function notice(text, kind = 'fail') {
  const element = $('notice');
  element.replaceChildren();
  element.hidden = !text;
  element.dataset.kind = kind;
  if (text)
    element.append(textNode(text));
}

function refreshControls() {
  const reached = kStages.indexOf(stage);
  for (const control of document.querySelectorAll('[data-step]'))
    control.disabled = busy || kStages.indexOf(control.dataset.step) > reached;
}

function setStage(next) {
  stage = next;
  const texts = {
    disconnected: ['unknown', 'not opened'],
    connected: ['idle', 'not opened'],
    opened: ['opened', 'opened'],
    verified: ['verified', 'opened, PIN verified'],
  };
  setState('key-state', ...texts[next]);
  refreshControls();
}

function shown(value) {
  if (typeof value !== 'string')
    return JSON.stringify(value);
  if (value === '')
    return '"" (empty)';
  if (value.length > kShownChars)
    return value.slice(0, kShownChars) + '… (' + number(value.length) + ' characters)';
  return value;
}

function addAnswer(method, ok, value, message) {
  const item = document.createElement('li');
  item.className = ok ? 'ok' : 'fail';
  item.dataset.method = method;
  const name = document.createElement('span');
  name.className = 'method';
  name.textContent = method;
  const verdict = document.createElement('span');
  verdict.className = 'verdict';
  verdict.textContent = ok ? ' answered ' : ' failed';
  item.append(name, verdict);
  if (value !== undefined) {
    const text = textNode(shown(value));
    text.className = 'value';
    item.append(ok ? '' : ': ', text);
  }
  if (message !== undefined) {
    const note = textNode(message);
    note.className = 'message';
    item.append(' — ', note);
  }
  $('answers').prepend(item);
}

// What a failure means for the user, in a sentence.
function explain(error) {
  switch (error.code) {
  case 'call-failed':
    return error.libraryMessage || '(the library gave no message)';
  case 'token-refused':
    return 'the bridge refused the access token of this address: open the address zthost serve printed when it last started';
  case 'origin-not-approved':
    return error.message;
  case 'message-too-large':
    return error.size !== undefined
      ? `too large: the call is ${number(error.size)} bytes and the bridge takes at most ${number(error.limit)} (zthost serve --max-message raises the limit); nothing was sent`
      : `too large: the bridge closed the connection at its limit of ${number(error.limit)} bytes`;
  case 'service-not-running':
    return 'zthost serve is not running (start it, then open the address it prints)';
  case 'disconnected':
    return 'the connection to the bridge ended during the call (' + error.message + ')';
  default:
    return error.message;
  }
}

// One call, with the page busy for its length; answers the value, or undefined after a failure.
async function run(method, work) {
  if (busy)
    return undefined;
  busy = true;
  document.body.setAttribute('aria-busy', 'true');
  setState('busy-state', 'busy', method + '…');
  refreshControls();
  try {
    const value = await work();
    addAnswer(method, true, value);
    return value;
  } catch (error) {
    if (error.code === 'call-failed')
      addAnswer(method, false, error.value, explain(error));
    else
      addAnswer(method, false, undefined, explain(error));
    return undefined;
  } finally {
    busy = false;
    document.body.removeAttribute('aria-busy');
    setState('busy-state', 'idle', 'idle');
    refreshControls();
  }
}

function algorithm(id) {
  const value = Number($(id).value.trim());
  return Number.isSafeInteger(value) && value >= 0 ? value : NaN;
}

function sizeLimitText() {
  const bridge = key.bridge;
  if (bridge.maxMessageBytes === null)
    return 'The bridge does not say its size limit.';
  const chars = key.maxEnvelopeChars;
  return `Largest envelope: ${number(chars)} Base64 characters, about ${(chars * 3 / 4 / 1048576).toFixed(1)} MiB `
       + `of envelope (the bridge takes messages of up to ${number(bridge.maxMessageBytes)} bytes).`;
}

// A chosen file is taken as Base64 text when it reads as such, else as raw DER; read in slices
// so that a large file never stalls the page.
async function envelopeFromFile(file) {
  const head = new Uint8Array(await file.slice(0, kSniffBytes).arrayBuffer());
  const headText = new TextDecoder('latin1').decode(head);
  const progress = $('file-progress');
  progress.hidden = false;
  progress.value = 0;
  try {
    if (file.size > 0 && /^[A-Za-z0-9+/=\s]+$/.test(headText)) {
      const text = (await file.text()).replace(/\s+/g, '');
      if (/^[A-Za-z0-9+/]+={0,2}$/.test(text))
        return text;
    }
    return await blobToBase64(file, { onProgress: (done, total) => { progress.value = done / total; } });
  } finally {
    progress.hidden = true;
  }
}

let downloadUrl = null;
function showPlaintext(base64) {
  const link = $('plaintext-download');
  if (downloadUrl) {
    URL.revokeObjectURL(downloadUrl);
    downloadUrl = null;
  }
  link.hidden = true;
  $('plaintext').value = '';
  let bytes;
  try {
    bytes = base64ToBytes(base64);
  } catch (e) {
    $('plaintext').value = '(the answer is not Base64)';
    return;
  }
  let text = null;
  if (bytes.length <= kShownPlaintextBytes) {
    try {
      text = new TextDecoder('utf-8', { fatal: true }).decode(bytes);
    } catch (e) {
      text = null;
    }
  }
  if (text !== null) {
    $('plaintext').value = text;
    return;
  }
  $('plaintext').value = bytes.length > kShownPlaintextBytes
    ? '(' + number(bytes.length) + ' bytes: too large to show here; download it below)'
    : '(' + number(bytes.length) + ' bytes that are not UTF-8 text)';
  downloadUrl = URL.createObjectURL(new Blob([bytes], { type: 'application/octet-stream' }));
  link.href = downloadUrl;
  link.hidden = false;
}

function wire() {
  $('open-key').addEventListener('click', async () => {
    if (await run('WebOpenKey', () => key.openKey()) === true)
      setStage('opened');
  });
  $('close-key').addEventListener('click', async () => {
    if (await run('WebCloseKey', () => key.closeKey()) === true)
      setStage('connected');
  });
  $('last-error').addEventListener('click', () => run('WebGetLastErrorMsg', () => key.lastErrorMessage()));
  $('pin-form').addEventListener('submit', async (event) => {
    event.preventDefault();
    const pin = $('pin').value;
    $('pin').value = '';
    if (await run('WebVerifyPin', () => key.verifyPin(pin)) === true)
      setStage('verified');
  });
  $('get-cert').addEventListener('click', async () => {
    const value = await run('WebGetCertData', () => key.getCertData());
    if (value !== undefined) {
      $('cert-output').value = value;
      $('copy-cert').disabled = false;
      if ($('encode-cert').value === '')
        $('encode-cert').value = value;
    }
  });
  $('copy-cert').addEventListener('click', async () => {
    const text = $('cert-output').value;
    try {
      await navigator.clipboard.writeText(text);
    } catch (e) {
      $('cert-output').select();
      document.execCommand('copy');
    }
  });
  $('encode').addEventListener('click', () => {
    const alg = algorithm('encode-alg');
    if (Number.isNaN(alg))
      return addAnswer('WebZtEncode', false, undefined, 'the algorithm is not a whole number');
    return run('WebZtEncode', () => key.encode($('encode-source').value.trim(), $('encode-cert').value.trim(), alg));
  });
  $('envelope').addEventListener('input', () => {
    fileEnvelope = null;
    $('envelope-file').value = '';
    $('file-summary').textContent = '';
  });
  $('envelope-file').addEventListener('change', async () => {
    const file = $('envelope-file').files[0];
    fileEnvelope = null;
    $('file-summary').textContent = '';
    if (!file)
      return;
    $('envelope').value = '';
    $('file-summary').textContent = `reading ${file.name}…`;
    const envelope = await envelopeFromFile(file);
    if ($('envelope-file').files[0] !== file)
      return;
    fileEnvelope = envelope;
    const room = key ? key.maxEnvelopeChars : null;
    let summary = `${file.name}: ${number(file.size)} bytes, ${number(envelope.length)} Base64 characters to send.`;
    if (room !== null && envelope.length > room)
      summary += ` That is more than the ${number(room)} the bridge takes: it will not be sent.`;
    $('file-summary').textContent = summary;
    $('file-summary').dataset.fits = room === null || envelope.length <= room ? 'yes' : 'no';
  });
  $('decode').addEventListener('click', async () => {
    const alg = algorithm('decode-alg');
    if (Number.isNaN(alg))
      return addAnswer('WebZtDecode', false, undefined, 'the algorithm is not a whole number');
    const envelope = fileEnvelope ?? $('envelope').value.replace(/\s+/g, '');
    const value = await run('WebZtDecode', () => key.decode(envelope, alg));
    if (value !== undefined)
      showPlaintext(value);
    return value;
  });
}

function onStateChange(event) {
  const { state, error } = event.detail;
  if (state === 'connected') {
    setState('connection-state', 'connected', 'connected');
    $('limit-note').textContent = sizeLimitText();
    return;
  }
  setStage('disconnected');
  if (state === 'reconnecting') {
    setState('connection-state', 'reconnecting', 'reconnecting…');
    notice('The connection to the bridge ended (' + (error ? error.message : 'closed')
           + '). Trying again; if zthost serve was restarted, open the new address it printed.');
  } else if (state === 'refused') {
    setState('connection-state', 'refused', error.code === 'token-refused' ? 'token refused' : 'refused');
    notice(explain(error));
  } else if (state === 'closed') {
    setState('connection-state', 'closed', 'disconnected');
    if (error)
      notice(explain(error));
  }
}

async function connect() {
  const token = new URLSearchParams(location.search).get('token');
  if (!token) {
    setState('connection-state', 'refused', 'no access token');
    notice('This address has no access token: open the address zthost serve printed when it started.');
    return;
  }
  key = new ZtKey({ url: 'ws://' + location.host + '/bridge', token });
  key.addEventListener('statechange', onStateChange);
  key.addEventListener('reconnected', () => {
    notice('The bridge restarted: this is a new session. Open the key and verify the PIN again.', 'info');
    setStage('connected');
  });
  try {
    await key.connect();
    notice('');
    setStage('connected');
  } catch (error) {
    // onStateChange has shown it.
  }
}

wire();
refreshControls();
connect();
