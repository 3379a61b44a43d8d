import {Api, Refused} from './api.js';
import {Centre} from './centre.js';
import {byId, say, show, speak, tellFailure} from './screen.js';
import {languageFor} from './words.js';

const TOKEN = 'token';
const LANGUAGE = 'language';

let centre;
let code = takeCode();

speak(sessionStorage.getItem(LANGUAGE) ?? languageFor(navigator.languages));
// A link that is opened in the same tab changes nothing but this.
addEventListener('hashchange', () => codeIn(location) && location.reload());
byId('retry').addEventListener('click', open);
open();

function codeIn({hash}) {
  return new URLSearchParams(hash.slice(1)).get('code');
}

// The code is kept out of the address, which gets copied and remembered.
function takeCode() {
  const given = codeIn(location);
  if (given)
    history.replaceState(null, '', location.pathname + location.search);
  return given;
}

async function open() {
  show('loading');
  try {
    if (code) {
      const token = await Api.signIn(code);
      code = null;
      sessionStorage.setItem(TOKEN, token);  // for this tab only
    }
    const token = sessionStorage.getItem(TOKEN);
    if (!token) {
      leave('signInMissing');
      return;
    }
    centre = await Centre.open(new Api(token), {leave, spoken: language => sessionStorage.setItem(LANGUAGE, language)});
  } catch (error) {
    if (error instanceof Refused && (code || error.code === 401)) {
      leave(code ? 'signInExpired' : 'signInWrong');
      return;
    }
    tellFailure(error);
  }
}

// Back to how the tab was before anyone signed in, with a word on why.
function leave(why) {
  sessionStorage.removeItem(TOKEN);
  code = null;
  centre?.close();
  byId('sign-in').querySelector('h2').textContent = say(why === 'signedOut' ? 'signedOut' : 'signInTitle');
  byId('sign-in-why').hidden = why === 'signedOut';
  byId('sign-in-why').textContent = say(why);
  show('sign-in');
  byId('sign-in').querySelector('h2').focus();
}
