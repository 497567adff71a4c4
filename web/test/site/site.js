// A remote site's page as its developer would write it with zt-key.js: find the key service,
// ask the user to approve the site if it must, then open the key, verify the PIN and decrypt a
// sealed bid (an envelope the site serves at /bid.b64). The test passes the service's port in
// the address (?port=N); a real site leaves it out and gets the default.

import { ZtKey } from './zt-key.js';

const $ = (id) => document.getElementById(id);
const port = Number(new URLSearchParams(location.search).get('port')) || undefined;

function show(state, text, help = '') {
  $('service').dataset.state = state;
  $('service').textContent = text;
  $('help').hidden = !help;
  $('help').textContent = help;
}

$('origin').textContent = location.origin;
let key = null;
try {
  key = await ZtKey.connect({ port });
  show('connected', `connected (zthost ${key.bridge.version}, ${key.bridge.mode} mode)`);
  $('pin').disabled = false;
  $('open-bid').disabled = false;
} catch (error) {
  if (error.code === 'origin-not-approved')
    show('refused', 'this site is not approved yet',
         `To let this site use your key, run: zthost origins add ${location.origin}`);
  else if (error.code === 'service-not-running')
    show('absent', 'the key service is not running',
         'Start it with: systemctl --user start zthost-bridge');
  else
    show('refused', error.message);
}
window.siteKey = key;  // for the test

$('unlock').addEventListener('submit', async (event) => {
  event.preventDefault();
  const pin = $('pin').value;
  $('pin').value = '';
  $('open-bid').disabled = true;
  $('result').textContent = 'working…';
  try {
    await key.openKey();
    await key.verifyPin(pin);
    const bid = (await (await fetch('bid.b64')).text()).trim();
    const plaintext = new TextDecoder().decode(Uint8Array.from(atob(await key.decode(bid)), (c) => c.charCodeAt(0)));
    $('result').textContent = plaintext;
    $('result').dataset.state = 'connected';
  } catch (error) {
    $('result').textContent = error.code === 'call-failed' ? error.libraryMessage : error.message;
    $('result').lang = error.code === 'call-failed' ? 'zh-CN' : 'en';
    $('result').dataset.state = 'refused';
  } finally {
    $('open-bid').disabled = false;
  }
});
