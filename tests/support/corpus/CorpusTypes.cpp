#include "corpus/CorpusTypes.hpp"

namespace corpus {

namespace {

using connector::json::Struct;

template <typename S>
void declareStatusFields(Struct<S>& status) {
  const auto hashtag =
      Struct<Hashtag>().field("text", &Hashtag::text).field("indices", &Hashtag::indices);
  const auto url = Struct<Url>()
                       .field("url", &Url::url)
                       .field("expanded_url", &Url::expandedUrl)
                       .field("display_url", &Url::displayUrl)
                       .field("indices", &Url::indices);
  const auto mention = Struct<UserMention>()
                           .field("screen_name", &UserMention::screenName)
                           .field("name", &UserMention::name)
                           .field("id", &UserMention::id)
                           .field("id_str", &UserMention::idStr)
                           .field("indices", &UserMention::indices);
  const auto size = Struct<MediaSize>()
                        .field("w", &MediaSize::w)
                        .field("h", &MediaSize::h)
                        .field("resize", &MediaSize::resize);
  const auto sizes = Struct<MediaSizes>()
                         .field("medium", &MediaSizes::medium, size)
                         .field("small", &MediaSizes::small, size)
                         .field("thumb", &MediaSizes::thumb, size)
                         .field("large", &MediaSizes::large, size);
  const auto media = Struct<Media>()
                         .field("id", &Media::id)
                         .field("id_str", &Media::idStr)
                         .field("indices", &Media::indices)
                         .field("media_url", &Media::mediaUrl)
                         .field("media_url_https", &Media::mediaUrlHttps)
                         .field("url", &Media::url)
                         .field("display_url", &Media::displayUrl)
                         .field("expanded_url", &Media::expandedUrl)
                         .field("type", &Media::type)
                         .field("sizes", &Media::sizes, sizes)
                         .field("source_status_id", &Media::sourceStatusId)
                         .field("source_status_id_str", &Media::sourceStatusIdStr);
  const auto entities = Struct<Entities>()
                            .field("hashtags", &Entities::hashtags, hashtag)
                            .field("symbols", &Entities::symbols, hashtag)
                            .field("urls", &Entities::urls, url)
                            .field("user_mentions", &Entities::userMentions, mention)
                            .field("media", &Entities::media, media);
  const auto urls = Struct<UrlList>().field("urls", &UrlList::urls, url);
  const auto userEntities = Struct<UserEntities>()
                                .field("url", &UserEntities::url, urls)
                                .field("description", &UserEntities::description, urls);
  const auto user =
      Struct<User>()
          .field("id", &User::id)
          .field("id_str", &User::idStr)
          .field("name", &User::name)
          .field("screen_name", &User::screenName)
          .field("location", &User::location)
          .field("description", &User::description)
          .field("url", &User::url)
          .field("entities", &User::entities, userEntities)
          .field("protected", &User::isProtected)
          .field("followers_count", &User::followersCount)
          .field("friends_count", &User::friendsCount)
          .field("listed_count", &User::listedCount)
          .field("created_at", &User::createdAt)
          .field("favourites_count", &User::favouritesCount)
          .field("utc_offset", &User::utcOffset)
          .field("time_zone", &User::timeZone)
          .field("geo_enabled", &User::geoEnabled)
          .field("verified", &User::verified)
          .field("statuses_count", &User::statusesCount)
          .field("lang", &User::lang)
          .field("contributors_enabled", &User::contributorsEnabled)
          .field("is_translator", &User::isTranslator)
          .field("is_translation_enabled", &User::isTranslationEnabled)
          .field("profile_background_color", &User::profileBackgroundColor)
          .field("profile_background_image_url", &User::profileBackgroundImageUrl)
          .field("profile_background_image_url_https", &User::profileBackgroundImageUrlHttps)
          .field("profile_background_tile", &User::profileBackgroundTile)
          .field("profile_image_url", &User::profileImageUrl)
          .field("profile_image_url_https", &User::profileImageUrlHttps)
          .field("profile_banner_url", &User::profileBannerUrl)
          .field("profile_link_color", &User::profileLinkColor)
          .field("profile_sidebar_border_color", &User::profileSidebarBorderColor)
          .field("profile_sidebar_fill_color", &User::profileSidebarFillColor)
          .field("profile_text_color", &User::profileTextColor)
          .field("profile_use_background_image", &User::profileUseBackgroundImage)
          .field("default_profile", &User::defaultProfile)
          .field("default_profile_image", &User::defaultProfileImage)
          .field("following", &User::following)
          .field("follow_request_sent", &User::followRequestSent)
          .field("notifications", &User::notifications);
  const auto metadata = Struct<StatusMetadata>()
                            .field("result_type", &StatusMetadata::resultType)
                            .field("iso_language_code", &StatusMetadata::isoLanguageCode);
  status.field("metadata", &StatusFields::metadata, metadata)
      .field("created_at", &StatusFields::createdAt)
      .field("id", &StatusFields::id)
      .field("id_str", &StatusFields::idStr)
      .field("text", &StatusFields::text)
      .field("source", &StatusFields::source)
      .field("truncated", &StatusFields::truncated)
      .field("in_reply_to_status_id", &StatusFields::inReplyToStatusId)
      .field("in_reply_to_status_id_str", &StatusFields::inReplyToStatusIdStr)
      .field("in_reply_to_user_id", &StatusFields::inReplyToUserId)
      .field("in_reply_to_user_id_str", &StatusFields::inReplyToUserIdStr)
      .field("in_reply_to_screen_name", &StatusFields::inReplyToScreenName)
      .field("user", &StatusFields::user, user)
      .field("retweet_count", &StatusFields::retweetCount)
      .field("favorite_count", &StatusFields::favoriteCount)
      .field("entities", &StatusFields::entities, entities)
      .field("favorited", &StatusFields::favorited)
      .field("retweeted", &StatusFields::retweeted)
      .field("possibly_sensitive", &StatusFields::possiblySensitive)
      .field("lang", &StatusFields::lang);
}

void declareTwitter(connector::json::MessageType<Twitter>& twitter) {
  Struct<RetweetedStatus> retweeted;
  declareStatusFields(retweeted);
  Struct<Status> status;
  declareStatusFields(status);
  status.field("retweeted_status", &Status::retweetedStatus, retweeted);
  const auto search = Struct<SearchMetadata>()
                          .field("completed_in", &SearchMetadata::completedIn)
                          .field("max_id", &SearchMetadata::maxId)
                          .field("max_id_str", &SearchMetadata::maxIdStr)
                          .field("next_results", &SearchMetadata::nextResults)
                          .field("query", &SearchMetadata::query)
                          .field("refresh_url", &SearchMetadata::refreshUrl)
                          .field("count", &SearchMetadata::count)
                          .field("since_id", &SearchMetadata::sinceId)
                          .field("since_id_str", &SearchMetadata::sinceIdStr);
  twitter.field("statuses", &Twitter::statuses, status)
      .field("search_metadata", &Twitter::searchMetadata, search);
}

void declareCitm(connector::json::MessageType<CitmCatalog>& catalog) {
  const auto event = Struct<CitmEvent>()
                         .field("description", &CitmEvent::description)
                         .field("id", &CitmEvent::id)
                         .field("logo", &CitmEvent::logo)
                         .field("name", &CitmEvent::name)
                         .field("subTopicIds", &CitmEvent::subTopicIds)
                         .field("subjectCode", &CitmEvent::subjectCode)
                         .field("subtitle", &CitmEvent::subtitle)
                         .field("topicIds", &CitmEvent::topicIds);
  const auto price = Struct<CitmPrice>()
                         .field("amount", &CitmPrice::amount)
                         .field("audienceSubCategoryId", &CitmPrice::audienceSubCategoryId)
                         .field("seatCategoryId", &CitmPrice::seatCategoryId);
  const auto area =
      Struct<CitmArea>().field("areaId", &CitmArea::areaId).field("blockIds", &CitmArea::blockIds);
  const auto seatCategory = Struct<CitmSeatCategory>()
                                .field("areas", &CitmSeatCategory::areas, area)
                                .field("seatCategoryId", &CitmSeatCategory::seatCategoryId);
  const auto performance =
      Struct<CitmPerformance>()
          .field("eventId", &CitmPerformance::eventId)
          .field("id", &CitmPerformance::id)
          .field("logo", &CitmPerformance::logo)
          .field("name", &CitmPerformance::name)
          .field("prices", &CitmPerformance::prices, price)
          .field("seatCategories", &CitmPerformance::seatCategories, seatCategory)
          .field("seatMapImage", &CitmPerformance::seatMapImage)
          .field("start", &CitmPerformance::start)
          .field("venueCode", &CitmPerformance::venueCode);
  catalog.field("areaNames", &CitmCatalog::areaNames)
      .field("audienceSubCategoryNames", &CitmCatalog::audienceSubCategoryNames)
      .field("blockNames", &CitmCatalog::blockNames)
      .field("events", &CitmCatalog::events, event)
      .field("performances", &CitmCatalog::performances, performance)
      .field("seatCategoryNames", &CitmCatalog::seatCategoryNames)
      .field("subTopicNames", &CitmCatalog::subTopicNames)
      .field("subjectNames", &CitmCatalog::subjectNames)
      .field("topicNames", &CitmCatalog::topicNames)
      .field("topicSubTopics", &CitmCatalog::topicSubTopics)
      .field("venueNames", &CitmCatalog::venueNames);
}

void declareCanada(connector::json::MessageType<FeatureCollection>& collection) {
  const auto geometry = Struct<Geometry>()
                            .field("type", &Geometry::type)
                            .field("coordinates", &Geometry::coordinates);
  const auto properties = Struct<FeatureProperties>().field("name", &FeatureProperties::name);
  const auto feature = Struct<Feature>()
                           .field("type", &Feature::type)
                           .field("properties", &Feature::properties, properties)
                           .field("geometry", &Feature::geometry, geometry);
  collection.field("features", &FeatureCollection::features, feature);
}

CorpusTypes declare() {
  CorpusTypes types;
  declareTwitter(types.twitter);
  declareCitm(types.citmCatalog);
  declareCanada(types.featureCollection);
  return types;
}

}  // namespace

const CorpusTypes& corpusTypes() {
  static const CorpusTypes types = declare();
  return types;
}

}  // namespace corpus
