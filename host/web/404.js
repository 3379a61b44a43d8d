import {languageFor, translate, wordsIn} from './words.js';

translate(wordsIn(languageFor(navigator.languages)));
