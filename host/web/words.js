import {fill, tagOf} from './text.js';

const ENGLISH = {
  heading: 'Notifications',
  skip: 'Skip to the list',
  account: 'Account',
  signedInAs: 'Signed in as',
  administrator: 'Administrator',
  language: 'Language',
  signOut: 'Sign out',
  loading: 'Loading notifications…',

  signInTitle: 'Open a sign-in link',
  signInMissing: 'This page opens with a personal sign-in link, and this tab has not been given one.',
  signInWrong: 'The sign-in link that this tab was opened with is not valid, or no longer valid.',
  signInHow: 'Whoever runs the host finds a link for each user in the terminal where it was started:',
  signInThen: 'Open one of those links in this browser. It stays signed in until the tab is closed.',

  failedTitle: 'The notifications could not be loaded',
  unreachable: 'The host does not answer. It may be stopped, or the connection to it may be down.',
  pageFailed: 'Something on this page went wrong. Reload it.',
  refused: 'The host could not answer the request ({CODE}).',
  retry: 'Try again',
  retryNow: 'Try now',
  nextTry: {one: 'Next try in {COUNT} second.', other: 'Next try in {COUNT} seconds.'},
  answersAgain: 'The host answers again.',
  textsMissing: 'The texts of this language could not be read, so notifications are shown by their names.',

  categories: 'Categories',
  allCategories: 'All categories',
  otherCategories: 'Other',
  choice: 'Desktop notifications:',
  on: 'On',
  off: 'Off',
  choiceNote: 'The bell shows your desktop choice, as it is stored on the appliance.',
  noCategories: 'The categories could not be read, so the list cannot be filtered.',

  desktop: 'Desktop notifications',
  desktopOff: 'Get told by this browser when something new arrives, as long as this page is open.',
  desktopOn: 'This browser tells you when something new arrives in a category that is on.',
  desktopDenied: 'Notifications of this page are blocked. Allow them in the browser’s settings for this site.',
  desktopUnsupported: 'This browser does not offer desktop notifications.',

  shown: {one: '{SHOWN} of {COUNT} notification', other: '{SHOWN} of {COUNT} notifications'},
  shownInCategory: 'Showing {SHOWN} of “{CATEGORY}”',
  searched: '{LOADED} of {TOTAL} searched',
  newCount: {one: '{NUMBER} new', other: '{NUMBER} new'},
  markSeen: 'Mark as seen',
  hiddenToo: 'Show hidden kinds too',
  deleteAll: 'Delete all…',
  showMore: 'Show more',
  loadingMore: 'Loading…',

  info: 'Information',
  warning: 'Warning',
  error: 'Error',
  new: 'New',
  systemEvent: 'System event',
  noText: 'There is no text for this kind of notification.',
  mail: 'Show mail',
  noMail: 'No mail is sent for this kind of notification.',
  mailFailed: 'The mail could not be loaded. Close this and open it again to retry.',

  emptyTitle: 'Nothing to report',
  empty: 'You have no notifications. New ones appear here by themselves.',
  emptyCategory: 'None of your notifications is of this category.',
  showAll: 'Show all categories',

  confirmTitle: {one: 'Delete {COUNT} notification?', other: 'Delete all {COUNT} notifications?'},
  confirmHidden: {
    one: 'This includes {COUNT} of a kind that is hidden from your list.',
    other: 'This includes {COUNT} of kinds that are hidden from your list.',
  },
  confirmText: 'They are removed for you on every device and cannot be brought back. Other users keep theirs.',
  confirm: {one: 'Delete', other: 'Delete {COUNT}'},
  cancel: 'Cancel',
  deleted: 'All your notifications are deleted.',

  arrived: {one: '{COUNT} new notification', other: '{COUNT} new notifications'},
};

const GERMAN = {
  heading: 'Benachrichtigungen',
  skip: 'Zur Liste springen',
  account: 'Konto',
  signedInAs: 'Angemeldet als',
  administrator: 'Administrator',
  language: 'Sprache',
  signOut: 'Abmelden',
  loading: 'Benachrichtigungen werden geladen …',

  signInTitle: 'Öffnen Sie einen Anmeldelink',
  signInMissing: 'Diese Seite öffnet sich mit einem persönlichen Anmeldelink; dieser Tab hat keinen erhalten.',
  signInWrong: 'Der Anmeldelink, mit dem dieser Tab geöffnet wurde, ist nicht oder nicht mehr gültig.',
  signInHow: 'Wer den Host betreibt, findet für jeden Benutzer einen Link in dem Terminal, in dem er gestartet wurde:',
  signInThen: 'Öffnen Sie einen dieser Links in diesem Browser. Die Anmeldung gilt, bis der Tab geschlossen wird.',

  failedTitle: 'Die Benachrichtigungen konnten nicht geladen werden',
  unreachable: 'Der Host antwortet nicht. Er ist vielleicht angehalten oder die Verbindung zu ihm unterbrochen.',
  pageFailed: 'Auf dieser Seite ist etwas schiefgegangen. Laden Sie sie neu.',
  refused: 'Der Host konnte die Anfrage nicht beantworten ({CODE}).',
  retry: 'Erneut versuchen',
  retryNow: 'Jetzt versuchen',
  nextTry: {one: 'Nächster Versuch in {COUNT} Sekunde.', other: 'Nächster Versuch in {COUNT} Sekunden.'},
  answersAgain: 'Der Host antwortet wieder.',
  textsMissing: 'Die Texte dieser Sprache konnten nicht gelesen werden; Benachrichtigungen erscheinen mit ihrem Namen.',

  categories: 'Kategorien',
  allCategories: 'Alle Kategorien',
  otherCategories: 'Andere',
  choice: 'Desktop-Benachrichtigungen:',
  on: 'An',
  off: 'Aus',
  choiceNote: 'Die Glocke zeigt Ihre Desktop-Einstellung, wie sie auf dem Gerät gespeichert ist.',
  noCategories: 'Die Kategorien konnten nicht gelesen werden; die Liste lässt sich nicht filtern.',

  desktop: 'Desktop-Benachrichtigungen',
  desktopOff: 'Lassen Sie sich von diesem Browser Neues melden, solange diese Seite geöffnet ist.',
  desktopOn: 'Dieser Browser meldet Neues aus den Kategorien, die eingeschaltet sind.',
  desktopDenied: 'Meldungen dieser Seite sind blockiert. Erlauben Sie sie in den Browsereinstellungen.',
  desktopUnsupported: 'Dieser Browser bietet keine Desktop-Benachrichtigungen.',

  shown: {one: '{SHOWN} von {COUNT} Benachrichtigung', other: '{SHOWN} von {COUNT} Benachrichtigungen'},
  shownInCategory: '{SHOWN} aus „{CATEGORY}“',
  searched: '{LOADED} von {TOTAL} durchsucht',
  newCount: {one: '{NUMBER} neue', other: '{NUMBER} neue'},
  markSeen: 'Als gesehen markieren',
  hiddenToo: 'Auch ausgeblendete zeigen',
  deleteAll: 'Alle löschen …',
  showMore: 'Mehr anzeigen',
  loadingMore: 'Wird geladen …',

  info: 'Information',
  warning: 'Warnung',
  error: 'Fehler',
  new: 'Neu',
  systemEvent: 'Systemereignis',
  noText: 'Zu dieser Art von Benachrichtigung gibt es keinen Text.',
  mail: 'Mail anzeigen',
  noMail: 'Zu dieser Art von Benachrichtigung wird keine Mail verschickt.',
  mailFailed: 'Die Mail konnte nicht geladen werden. Schließen und öffnen Sie sie, um es erneut zu versuchen.',

  emptyTitle: 'Alles ruhig',
  empty: 'Sie haben keine Benachrichtigungen. Neue erscheinen hier von selbst.',
  emptyCategory: 'Keine Ihrer Benachrichtigungen gehört zu dieser Kategorie.',
  showAll: 'Alle Kategorien zeigen',

  confirmTitle: {one: '{COUNT} Benachrichtigung löschen?', other: 'Alle {COUNT} Benachrichtigungen löschen?'},
  confirmHidden: {
    one: 'Darunter ist {COUNT}, die in Ihrer Liste ausgeblendet ist.',
    other: 'Darunter sind {COUNT}, die in Ihrer Liste ausgeblendet sind.',
  },
  confirmText: 'Sie werden für Sie auf allen Geräten gelöscht und lassen sich nicht zurückholen. Andere Benutzer behalten ihre.',
  confirm: {one: 'Löschen', other: '{COUNT} löschen'},
  cancel: 'Abbrechen',
  deleted: 'Alle Ihre Benachrichtigungen sind gelöscht.',

  arrived: {one: '{COUNT} neue Benachrichtigung', other: '{COUNT} neue Benachrichtigungen'},
};

const FRENCH = {
  heading: 'Notifications',
  skip: 'Aller à la liste',
  account: 'Compte',
  signedInAs: 'Session de',
  administrator: 'Administrateur',
  language: 'Langue',
  signOut: 'Se déconnecter',
  loading: 'Chargement des notifications…',

  signInTitle: 'Ouvrez un lien de connexion',
  signInMissing: 'Cette page s’ouvre avec un lien de connexion personnel, et cet onglet n’en a pas reçu.',
  signInWrong: 'Le lien de connexion avec lequel cet onglet a été ouvert n’est pas valable, ou ne l’est plus.',
  signInHow: 'La personne qui exploite l’hôte trouve un lien par utilisateur dans le terminal où il a été lancé :',
  signInThen: 'Ouvrez l’un de ces liens dans ce navigateur. La session dure jusqu’à la fermeture de l’onglet.',

  failedTitle: 'Les notifications n’ont pas pu être chargées',
  unreachable: 'L’hôte ne répond pas. Il est peut-être arrêté, ou la connexion est interrompue.',
  pageFailed: 'Un problème est survenu sur cette page. Rechargez-la.',
  refused: 'L’hôte n’a pas pu répondre à la demande ({CODE}).',
  retry: 'Réessayer',
  retryNow: 'Essayer maintenant',
  nextTry: {one: 'Prochain essai dans {COUNT} seconde.', other: 'Prochain essai dans {COUNT} secondes.'},
  answersAgain: 'L’hôte répond de nouveau.',
  textsMissing: 'Les textes de cette langue n’ont pas pu être lus ; les notifications sont affichées par leur nom.',

  categories: 'Catégories',
  allCategories: 'Toutes les catégories',
  otherCategories: 'Autres',
  choice: 'Notifications de bureau :',
  on: 'Oui',
  off: 'Non',
  choiceNote: 'La cloche montre votre choix pour le bureau, tel qu’enregistré sur l’appareil.',
  noCategories: 'Les catégories n’ont pas pu être lues ; la liste ne peut pas être filtrée.',

  desktop: 'Notifications de bureau',
  desktopOff: 'Soyez averti par ce navigateur des nouveautés tant que cette page est ouverte.',
  desktopOn: 'Ce navigateur vous avertit des nouveautés dans les catégories activées.',
  desktopDenied: 'Les notifications de cette page sont bloquées. Autorisez-les dans les réglages du navigateur.',
  desktopUnsupported: 'Ce navigateur ne propose pas de notifications de bureau.',

  shown: {one: '{SHOWN} sur {COUNT} notification', other: '{SHOWN} sur {COUNT} notifications'},
  shownInCategory: '{SHOWN} dans « {CATEGORY} »',
  searched: '{LOADED} sur {TOTAL} parcourues',
  newCount: {one: '{NUMBER} nouvelle', other: '{NUMBER} nouvelles'},
  markSeen: 'Marquer comme vues',
  hiddenToo: 'Afficher aussi les masquées',
  deleteAll: 'Tout supprimer…',
  showMore: 'Afficher plus',
  loadingMore: 'Chargement…',

  info: 'Information',
  warning: 'Avertissement',
  error: 'Erreur',
  new: 'Nouveau',
  systemEvent: 'Événement système',
  noText: 'Il n’y a pas de texte pour ce type de notification.',
  mail: 'Afficher le courriel',
  noMail: 'Aucun courriel n’est envoyé pour ce type de notification.',
  mailFailed: 'Le courriel n’a pas pu être chargé. Fermez puis rouvrez pour réessayer.',

  emptyTitle: 'Rien à signaler',
  empty: 'Vous n’avez aucune notification. Les nouvelles apparaissent ici d’elles-mêmes.',
  emptyCategory: 'Aucune de vos notifications n’appartient à cette catégorie.',
  showAll: 'Afficher toutes les catégories',

  confirmTitle: {one: 'Supprimer {COUNT} notification ?', other: 'Supprimer les {COUNT} notifications ?'},
  confirmHidden: {
    one: 'Dont {COUNT} d’un type masqué dans votre liste.',
    other: 'Dont {COUNT} de types masqués dans votre liste.',
  },
  confirmText: 'Elles sont supprimées pour vous sur tous les appareils, sans retour possible. Les autres utilisateurs gardent les leurs.',
  confirm: {one: 'Supprimer', other: 'Supprimer les {COUNT}'},
  cancel: 'Annuler',
  deleted: 'Toutes vos notifications sont supprimées.',

  arrived: {one: '{COUNT} nouvelle notification', other: '{COUNT} nouvelles notifications'},
};

const DICTIONARIES = {enu: ENGLISH, ger: GERMAN, fre: FRENCH};

// The page's own words. A language without any gets English ones, and its `tag` says so.
export function wordsIn(language) {
  const dictionary = DICTIONARIES[language] ?? ENGLISH;
  const tag = tagOf(language in DICTIONARIES ? language : 'enu');
  const plurals = new Intl.PluralRules(tag);
  const numbers = new Intl.NumberFormat(tag);

  return {
    tag,
    say(key, values = {}) {
      const entry = dictionary[key];
      const text = entry.other ? entry[plurals.select(values.COUNT)] ?? entry.other : entry;
      return fill(text, Object.fromEntries(Object.entries(values).map(([name, value]) =>
        [name, typeof value === 'number' ? numbers.format(value) : value])));
    },
  };
}

// The language to speak before anyone has signed in.
export function languageOfBrowser() {
  return navigator.languages
    .map(own => Object.keys(DICTIONARIES).find(language => tagOf(language) === own.split('-')[0]))
    .find(Boolean) ?? 'enu';
}
