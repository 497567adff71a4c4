// The demo page: calls the key's seven methods through the bridge and shows every answer.
// The access token comes from this page's own address; the PIN goes nowhere but the call.
'use strict';

(function () {
  const $ = (id) => document.getElementById(id);
  const kShownChars = 160;
  let key = null;

  function setState(id, state, text) {
    const element = $(id);
    element.dataset.state = state;
    element.textContent = text;
  }

  function isFailure(value) {
    return value === false || value === 'false';
  }

  function shown(value) {
    if (typeof value !== 'string')
      return JSON.stringify(value);
    if (value === '')
      return '"" (empty)';
    if (value.length > kShownChars)
      return value.slice(0, kShownChars) + '… (' + value.length + ' characters)';
    return value;
  }

  function addAnswer(method, value, message) {
    const item = document.createElement('li');
    const failed = isFailure(value);
    item.className = failed ? 'fail' : 'ok';
    item.dataset.method = method;
    const name = document.createElement('span');
    name.className = 'method';
    name.textContent = method;
    const verdict = document.createElement('span');
    verdict.className = 'verdict';
    verdict.textContent = failed ? ' failed: ' : ' answered ';
    const text = document.createElement('span');
    text.className = 'value';
    text.textContent = shown(value);
    item.append(name, verdict, text);
    if (message !== undefined) {
      const note = document.createElement('span');
      note.className = 'message';
      note.textContent = ' — ' + message;
      item.append(note);
    }
    $('answers').prepend(item);
  }

  // One call; a failure answer is shown with WebGetLastErrorMsg.
  function call(method, ...args) {
    return new Promise((resolve) => {
      if (!key) {
        addAnswer(method, false, 'not connected to the bridge');
        resolve(false);
        return;
      }
      key[method](...args, (value) => {
        if (!isFailure(value) || method === 'WebGetLastErrorMsg') {
          addAnswer(method, value);
          resolve(value);
          return;
        }
        key.WebGetLastErrorMsg((message) => {
          addAnswer(method, value, message);
          resolve(value);
        });
      });
    });
  }

  function algorithm(id) {
    const text = $(id).value.trim();
    const number = Number(text);
    return Number.isSafeInteger(number) && number >= 0 ? number : NaN;
  }

  function bytesToBase64(bytes) {
    let binary = '';
    const chunk = 0x8000;
    for (let i = 0; i < bytes.length; i += chunk)
      binary += String.fromCharCode.apply(null, bytes.subarray(i, i + chunk));
    return btoa(binary);
  }

  function base64ToBytes(text) {
    const binary = atob(text);
    const bytes = new Uint8Array(binary.length);
    for (let i = 0; i < binary.length; ++i)
      bytes[i] = binary.charCodeAt(i);
    return bytes;
  }

  // A chosen file is taken as Base64 text when it reads as such, else as raw DER.
  async function envelopeFromFile(file) {
    const bytes = new Uint8Array(await file.arrayBuffer());
    const text = new TextDecoder('latin1').decode(bytes).replace(/\s+/g, '');
    if (text.length > 0 && /^[A-Za-z0-9+/]+={0,2}$/.test(text))
      return text;
    return bytesToBase64(bytes);
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
    try {
      $('plaintext').value = new TextDecoder('utf-8', { fatal: true }).decode(bytes);
    } catch (e) {
      $('plaintext').value = '(' + bytes.length + ' bytes that are not UTF-8 text)';
      downloadUrl = URL.createObjectURL(new Blob([bytes], { type: 'application/octet-stream' }));
      link.href = downloadUrl;
      link.hidden = false;
    }
  }

  function wire() {
    $('open-key').addEventListener('click', async () => {
      if (await call('WebOpenKey') === true)
        setState('key-state', 'opened', 'opened');
    });
    $('close-key').addEventListener('click', async () => {
      if (await call('WebCloseKey') === true)
        setState('key-state', 'closed', 'closed');
    });
    $('last-error').addEventListener('click', () => call('WebGetLastErrorMsg'));
    $('pin-form').addEventListener('submit', async (event) => {
      event.preventDefault();
      const pin = $('pin').value;
      $('pin').value = '';
      if (await call('WebVerifyPin', pin) === true)
        setState('key-state', 'verified', 'opened, PIN verified');
    });
    $('get-cert').addEventListener('click', async () => {
      const value = await call('WebGetCertData', $('cert-type').value);
      if (!isFailure(value)) {
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
        return addAnswer('WebZtEncode', false, 'the algorithm is not a whole number');
      call('WebZtEncode', $('encode-source').value.trim(), $('encode-cert').value.trim(), alg);
    });
    $('envelope-file').addEventListener('change', async () => {
      const file = $('envelope-file').files[0];
      if (file)
        $('envelope').value = await envelopeFromFile(file);
    });
    $('decode').addEventListener('click', async () => {
      const alg = algorithm('decode-alg');
      if (Number.isNaN(alg))
        return addAnswer('WebZtDecode', false, 'the algorithm is not a whole number');
      const value = await call('WebZtDecode', $('envelope').value.replace(/\s+/g, ''), alg);
      if (!isFailure(value))
        showPlaintext(value);
    });
  }

  function enable(on) {
    for (const control of document.querySelectorAll('[data-needs-channel]'))
      control.disabled = !on;
  }

  function connect() {
    const token = new URLSearchParams(location.search).get('token');
    if (!token) {
      setState('connection-state', 'refused', 'no access token in this address');
      return;
    }
    const socket = new WebSocket('ws://' + location.host + '/bridge?token=' + encodeURIComponent(token));
    socket.addEventListener('close', () => {
      key = null;
      enable(false);
      setState('connection-state', 'closed', 'disconnected (reload to try again)');
    });
    socket.addEventListener('open', () => {
      new QWebChannel(socket, (channel) => {
        key = channel.objects.ZtCryptographic;
        setState('connection-state', 'connected', 'connected');
        enable(true);
      });
    });
  }

  wire();
  connect();
})();
